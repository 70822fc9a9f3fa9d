/*
 * ldap_export.h - marks the functions of the directory client library that
 * libquillomat.so and the quillomat executable export.
 *
 * The library is built with hidden visibility: a function is exported only
 * when its declaration carries QUILLOMAT_EXPORT, and the exported families
 * are ber_*, vsx_ldap_* and ldap_*. Every exported name is also listed in
 * ber/exported_symbols.txt, which a test compares with what the shared
 * library and the executable really export; adding an export means adding
 * it there too.
 *
 * Included by the public headers (lber.h, ...) with a quoted include, so it
 * is found beside them both in the source tree and where they are installed.
 */
#ifndef QUILLOMAT_LDAP_EXPORT_H
#define QUILLOMAT_LDAP_EXPORT_H

#if defined(__GNUC__)
#define QUILLOMAT_EXPORT __attribute__((visibility("default")))
#else
#define QUILLOMAT_EXPORT
#endif

#endif /* QUILLOMAT_LDAP_EXPORT_H */
