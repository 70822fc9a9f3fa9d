// entry/entry_internal.h - what the record writer may know of the blocks
// the entry model makes. Internal to the entry layer (C++ only).
//
// An attribute made by gslcleclaCreateLDAPAttribute is one block: the
// record, then the verdict on its name taken at creation (the name's length
// when an LDIF record may bear it, -1 when gslclecnCheckAttrName refuses
// it), then the name itself. Names never change after creation, so the
// writer takes the verdict instead of checking every name of every record
// again.
#ifndef QUILLOMAT_ENTRY_ENTRY_INTERNAL_H
#define QUILLOMAT_ENTRY_ENTRY_INTERNAL_H

#include <cstdint>

#include "entry/entry.h"

namespace gslu::entry {

// The length of the attribute's name when a record may bear it, -1 when
// not: the verdict taken at creation while the name is still the copy made
// then, the name checked now when the record was given another.
[[nodiscard]] int64_t checkedNameLengthOf(const LDAPAttribute *attribute);

}  // namespace gslu::entry

#endif  // QUILLOMAT_ENTRY_ENTRY_INTERNAL_H
