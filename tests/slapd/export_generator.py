#!/usr/bin/python3
"""A deterministic DSML v1 export of a directory, made to be loaded into slapd.

Everything but the certificates follows from the seed. The certificates are
real DER certificates that openssl signs with Ed25519 keys derived from the
seed (slapd checks the Certificate syntax, so random bytes would be refused);
only their validity dates change from run to run.

Run on its own, it writes the export to standard output:

    tests/slapd/export_generator.py [--seed N] [--compatible] > export.dsml
"""

import argparse
import base64
import hashlib
import os
import random
import subprocess
import sys
import tempfile
from xml.sax.saxutils import escape, quoteattr

BASE_DN = "dc=quillomat,dc=test"
PEOPLE_DN = "ou=People," + BASE_DN
GROUPS_DN = "ou=Groups," + BASE_DN
DEPARTMENTS = ("Engineering", "Sales", "Support", "Research")
PERSON_COUNT = 520
GROUP_COUNT = 12
DEFAULT_SEED = 2849

PHOTO_MIN = 2 * 1024
PHOTO_MAX = 8 * 1024
LARGE_PHOTO = 60 * 1024
# The person who carries the one 60 KiB photo.
LARGE_PHOTO_PERSON = 137
CERTIFICATE_COUNT = 4

# (UTF-8 name, ASCII spelling for uid and mail). Latin with diacritics,
# Greek, Cyrillic, CJK, Hangul, Arabic, and characters of four bytes.
GIVEN_NAMES = (
    ("Jürgen", "juergen"), ("Zoë", "zoe"), ("Åsa", "asa"), ("Øyvind", "oyvind"),
    ("Chloé", "chloe"), ("François", "francois"), ("Søren", "soren"),
    ("Ελένη", "eleni"), ("Дмитрий", "dmitry"), ("明", "ming"), ("민준", "minjun"),
    ("محمد", "mohammed"), ("Ann", "ann"), ("Bob", "bob"), ("Carla", "carla"),
    ("Dónal", "donal"), ("Łukasz", "lukasz"), ("Þóra", "thora"), ("İpek", "ipek"),
    ("𠮷乃", "yoshino"),
)
SURNAMES = (
    ("Müller", "mueller"), ("Ångström", "angstrom"), ("Dubois", "dubois"),
    ("Παπαδοπούλου", "papadopoulou"), ("Иванова", "ivanova"), ("李", "li"),
    ("佐藤", "sato"), ("김", "kim"), ("Lee", "lee"), ("O'Neill", "oneill"),
    ("Nuñez", "nunez"), ("Øverli", "overli"), ("Šimková", "simkova"),
    ("Grüße-Straße", "gruesse"), ("Smith", "smith"), ("Ōtsuka", "otsuka"),
)
TITLES = ("Engineer", "Senior Engineer", "Account Manager", "Support Analyst",
          "Researcher", "Team Lead", "Ingénieure principale", "Директор")
CITIES = (("Berlin", "BE"), ("Zürich", "ZH"), ("Köln", "NW"), ("Århus", "82"),
          ("São Paulo", "SP"), ("東京", "13"), ("Montréal", "QC"))
DESCRIPTIONS = (
    "Keeps the build green & reviews every schema change before it reaches "
    "production; owns the import scripts since 2019.",
    "Spricht Deutsch, Français et English — «très» ‹bien› “quoted”.",
    "First line\nsecond line\nthird line",
    "Tab\tseparated\tfields",
    "Emoji in text: 🌻🚀, and a 4-byte CJK 𠮷.",
    "Quotes \" and apostrophes ' and > signs.",
)

# Values that an LDIF reader only gets back when they are written in base64:
# a leading "<" (":<" would name a URL), a trailing space (readers trim it)
# and a NUL (a plain value may end there). Only the writer's strict mode is
# expected to carry them.
STRICT_ONLY_KINDS = ("leading <", "trailing space", "NUL")


def certificate_key(seed, index):
    """The PKCS #8 DER of an Ed25519 private key derived from seed and index."""
    secret = hashlib.sha256(b"quillomat slapd certificate %d %d" % (seed, index)).digest()
    return bytes.fromhex("302e020100300506032b657004220420") + secret


def make_certificates(seed, workdir, openssl="openssl"):
    """CERTIFICATE_COUNT self-signed DER certificates with UTF-8 subjects."""
    certificates = []
    for index in range(CERTIFICATE_COUNT):
        given, _ = GIVEN_NAMES[index * 3]
        surname, ascii_surname = SURNAMES[index * 2]
        key = os.path.join(workdir, "key%d.der" % index)
        cert = os.path.join(workdir, "cert%d.der" % index)
        with open(key, "wb") as out:
            out.write(certificate_key(seed, index))
        subprocess.run(
            [openssl, "req", "-x509", "-new", "-key", key, "-keyform", "DER",
             "-utf8", "-subj", "/CN=%s %s/O=Quillomat Test/C=DE" % (given, surname),
             "-days", "3650", "-set_serial", str(1000 + index),
             "-addext", "subjectAltName=email:%s@example.test" % ascii_surname,
             "-outform", "DER", "-out", cert],
            check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        with open(cert, "rb") as data:
            certificates.append(data.read())
    return certificates


class Document:
    """Accumulates the DSML text and counts what it holds."""

    def __init__(self):
        self.parts = []
        self.entries = 0
        self.counts = {}

    def count(self, kind, n=1):
        self.counts[kind] = self.counts.get(kind, 0) + n

    def entry(self, dn, object_classes, attributes):
        """attributes: (name, [value, ...]); a value is str, or bytes written in base64.
        A str value in a tuple ("b64", text) is written in base64 too."""
        out = self.parts
        out.append("<dsml:entry dn=%s>\n<dsml:objectclass>" % quoteattr(dn))
        out.extend("<dsml:oc-value>%s</dsml:oc-value>" % oc for oc in object_classes)
        out.append("</dsml:objectclass>\n")
        for name, values in attributes:
            out.append("<dsml:attr name=%s>" % quoteattr(name))
            for value in values:
                out.append(value_element(value))
            out.append("</dsml:attr>\n")
        out.append("</dsml:entry>\n")
        self.entries += 1

    def text(self):
        return ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                "<dsml:dsml xmlns:dsml=\"http://www.dsml.org/DSML\">\n"
                "<dsml:directory-entries>\n" + "".join(self.parts) +
                "</dsml:directory-entries>\n</dsml:dsml>\n")


def value_element(value):
    if isinstance(value, tuple):
        value = value[1].encode("utf-8")
    if isinstance(value, bytes):
        encoded = base64.encodebytes(value).decode("ascii")
        return "<dsml:value encoding=\"base64\">\n%s</dsml:value>" % encoded
    # No entity or CDATA trick is needed for leading or trailing spaces:
    # element text keeps them, and "<" becomes "&lt;".
    return "<dsml:value>%s</dsml:value>" % escape(value)


def jpeg_bytes(rng, size):
    """size bytes that start like a JFIF file and end with its EOI marker."""
    head = bytes.fromhex("ffd8ffe000104a46494600010101004800480000")
    body = rng.randbytes(size - len(head) - 2)
    return head + body + b"\xff\xd9"


def person_rdn(index, given, surname, uid, cn):
    """Return the RDN and, when it names the entry by cn, that cn value.
    Most people are named by uid; some by a UTF-8 cn, one by a cn holding a
    comma and one by a two-part RDN, in the form a server writes back as is
    (a comma as \\2C)."""
    if index == 7:
        value = "%s, %s %d" % (surname, given, index)
        return "cn=" + value.replace(",", "\\2C"), value
    if index == 11:
        return "cn=%s+uid=%s" % (cn, uid), cn
    if index % 25 == 3:
        return "cn=" + cn, cn
    return "uid=" + uid, None


def special_descriptions(index, doc, strict_values):
    """Values whose first or last byte an LDIF writer must treat with care."""
    values = []
    if strict_values and index % 6 == 0:
        values.append("<b>Team lead</b> of unit %d" % index)
        doc.count("leading <")
    if index % 6 == 1:
        values.append(" indented note %d" % index)
        doc.count("leading space")
    if index % 6 == 2:
        values.append(":colon first %d" % index)
        doc.count("leading colon")
    if strict_values and index % 6 == 3:
        values.append("ends with a space %d " % index)
        doc.count("trailing space")
    if index % 9 == 4:
        # The same kinds of value reach the reader as base64 in the DSML too.
        text = ": base64 in the document %d" % index
        if strict_values:
            text = "<base64 in the document %d " % index
            doc.count("leading <")
            doc.count("trailing space")
        values.append(("b64", text))
    return values


def person(doc, rng, index, certificates, strict_values, member_dns):
    given, ascii_given = GIVEN_NAMES[index % len(GIVEN_NAMES)]
    surname, ascii_surname = SURNAMES[(index * 7) % len(SURNAMES)]
    uid = "%s.%s%d" % (ascii_given, ascii_surname, index)
    cn = "%s %s" % (given, surname)
    department = DEPARTMENTS[index % len(DEPARTMENTS)]
    parent = "ou=%s,%s" % (department, PEOPLE_DN)

    cns = [cn + " %d" % index]
    rdn, rdn_cn = person_rdn(index, given, surname, uid, cns[0])
    if rdn_cn not in (None, cns[0]):
        cns.append(rdn_cn)
    if index % 3 == 0:
        cns.append("%s %s" % (given[0], surname) + " #%d" % index)
    if index % 5 == 0:
        cns.append("%s (%s)" % (cn, department))
    dn = "%s,%s" % (rdn, parent)
    member_dns.append(dn)

    mails = ["%s@example.test" % uid]
    mails += ["%s%d@%s.example.test" % (ascii_given, index, d.lower())
              for d in DEPARTMENTS[: index % 3]]
    city, state = CITIES[index % len(CITIES)]
    titles = [TITLES[index % len(TITLES)]]
    if strict_values and index % 10 == 5:
        titles = [titles[0] + " "]
        doc.count("trailing space")
    if index % 4 == 1:
        titles.append("Deputy " + TITLES[(index + 3) % len(TITLES)])

    attributes = [
        ("uid", [uid]),
        ("cn", cns),
        ("sn", [surname]),
        ("givenName", [given]),
        ("displayName", [("b64", cn) if index % 2 else cn]),
        ("initials", [given[0] + surname[0]]),
        ("mail", mails),
        ("telephoneNumber", ["+49 30 5550 %04d" % (index + k) for k in range(index % 3)]),
        ("title", titles),
        ("l", [city]),
        ("st", [state]),
        ("postalAddress", ["%s Straße %d$%s$Germany" % (surname, index, city)]),
        ("employeeNumber", ["E%05d" % index]),
        ("departmentNumber", [department, "D-%d" % (index % 17)]),
        ("preferredLanguage", ["de-DE, en;q=0.7"]),
        ("roomNumber", ["B-%d.%02d" % (index % 5, index % 60)]),
        ("labeledURI", ["https://people.example.test/~%s Home page of %s" % (uid, cn)]),
        ("carLicense", ["B-QM %d" % index] if index % 8 else ["Köln-Ä %d" % index]),
    ]
    descriptions = [DESCRIPTIONS[index % len(DESCRIPTIONS)] + " (%d)" % index]
    descriptions += special_descriptions(index, doc, strict_values)
    attributes.append(("description", descriptions))

    if index == LARGE_PHOTO_PERSON:
        attributes.append(("jpegPhoto", [jpeg_bytes(rng, LARGE_PHOTO)]))
        doc.count("photo of 60 KiB")
    elif index % 4 != 3:
        photos = [jpeg_bytes(rng, rng.randint(PHOTO_MIN, PHOTO_MAX))]
        if index % 50 == 0:
            photos.append(jpeg_bytes(rng, rng.randint(PHOTO_MIN, PHOTO_MAX)))
        attributes.append(("jpegPhoto", photos))
        doc.count("photo of 2-8 KiB", len(photos))

    if index % 5 == 0:
        chosen = [certificates[index % len(certificates)]]
        if index % 20 == 0:
            chosen.append(certificates[(index + 1) % len(certificates)])
        attributes.append(("userCertificate;binary", chosen))
        doc.count("certificate", len(chosen))

    if strict_values and index % 4 == 2:
        # Octet String: the syntax that keeps every byte, NUL included.
        secret = b"{CLEAR}" + rng.randbytes(6) + b"\x00" + rng.randbytes(6)
        attributes.append(("userPassword", [secret]))
        doc.count("NUL")
    else:
        attributes.append(("userPassword", ["secret-%d" % index]))

    attributes = [(name, values) for name, values in attributes if values]
    doc.count("multi-valued attribute", sum(1 for _, v in attributes if len(v) > 1))
    doc.entry(dn, ("top", "person", "organizationalPerson", "inetOrgPerson"), attributes)


def generate(seed, certificates, strict_values=True):
    """Return (DSML bytes, {kind: count}) for the export of the seed.

    strict_values=False leaves out the values in STRICT_ONLY_KINDS."""
    rng = random.Random(seed)
    doc = Document()
    doc.entry(BASE_DN, ("top", "domain"), [("dc", ["quillomat"])])
    for dn, name in ((PEOPLE_DN, "People"), (GROUPS_DN, "Groups")):
        doc.entry(dn, ("top", "organizationalUnit"), [("ou", [name])])
    for department in DEPARTMENTS:
        doc.entry("ou=%s,%s" % (department, PEOPLE_DN), ("top", "organizationalUnit"),
                  [("ou", [department]), ("description", ["Unit «%s»" % department])])
    member_dns = []
    for index in range(PERSON_COUNT):
        person(doc, rng, index, certificates, strict_values, member_dns)
    for group in range(GROUP_COUNT):
        members = rng.sample(member_dns, rng.randint(20, 80))
        doc.entry("cn=Group %d,%s" % (group, GROUPS_DN), ("top", "groupOfNames"),
                  [("cn", ["Group %d" % group, "Gruppe Nº %d" % group]),
                   ("member", members)])
    return doc.text().encode("utf-8"), dict(doc.counts, entries=doc.entries)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--seed", type=int, default=DEFAULT_SEED)
    parser.add_argument("--compatible", action="store_true",
                        help="leave out the values only a strict LDIF writer keeps")
    args = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="quillomat-certs-") as workdir:
        certificates = make_certificates(args.seed, workdir)
    data, counts = generate(args.seed, certificates, not args.compatible)
    sys.stdout.buffer.write(data)
    print(", ".join("%s: %d" % item for item in sorted(counts.items())), file=sys.stderr)


if __name__ == "__main__":
    main()
