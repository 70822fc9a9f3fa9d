// dsml/reader_table.h - the DSML reader's element transitions. Internal
// (C++ only): the reader looks rows up here, and the tests walk the same
// rows.
#ifndef QUILLOMAT_DSML_READER_TABLE_H
#define QUILLOMAT_DSML_READER_TABLE_H

#include <cstdint>
#include <iterator>
#include <string_view>

#include "dsml/reader_common.h"
#include "dsml/reader_internal.h"

namespace gslxdv {

// What opening the element does before the machine moves on.
enum class Action : uint8_t {
  kNone,
  kCreateEntry,        // needs XML attribute "dn"; creates the entry
  kCreateObjectclass,  // creates the attribute "objectclass"
  kCreateAttribute,    // needs XML attribute "name"; creates that attribute
  kMarkBase64,         // an "encoding" attribute, whatever its value, marks base64
};

struct Transition {
  uint16_t state;            // current state
  std::string_view element;  // element name in lower case, compared ignoring case
  Action action;
  uint16_t next;  // state after the element opened
};

// A (state, element) pair that is not listed is skipped with its whole
// content, in every state.
inline constexpr Transition kTransitions[] = {
    {GSLXDV_STATE_DOCUMENT, "dsml", Action::kNone, GSLXDV_STATE_DSML},
    {GSLXDV_STATE_DSML, "directory-entries", Action::kNone, GSLXDV_STATE_ENTRIES},
    {GSLXDV_STATE_DSML, "directory-schema", Action::kNone, GSLXDV_STATE_SCHEMA},
    {GSLXDV_STATE_SCHEMA, "class", Action::kNone, GSLXDV_STATE_CLASS},
    {GSLXDV_STATE_SCHEMA, "attribute-type", Action::kNone, GSLXDV_STATE_ATTRIBUTE_TYPE},
    {GSLXDV_STATE_ENTRIES, "entry", Action::kCreateEntry, GSLXDV_STATE_ENTRY},
    {GSLXDV_STATE_ENTRY, "objectclass", Action::kCreateObjectclass, GSLXDV_STATE_OBJECTCLASS},
    {GSLXDV_STATE_ENTRY, "attr", Action::kCreateAttribute, GSLXDV_STATE_ATTR},
    {GSLXDV_STATE_OBJECTCLASS, "oc-value", Action::kNone, GSLXDV_STATE_OC_VALUE},
    {GSLXDV_STATE_ATTR, "value", Action::kMarkBase64, GSLXDV_STATE_VALUE},
    {GSLXDV_STATE_CLASS, "name", Action::kNone, GSLXDV_STATE_NAME},
    {GSLXDV_STATE_CLASS, "description", Action::kNone, GSLXDV_STATE_DESCRIPTION},
    {GSLXDV_STATE_CLASS, "object-identifier", Action::kNone, GSLXDV_STATE_OBJECT_IDENTIFIER},
    {GSLXDV_STATE_CLASS, "attribute", Action::kNone, GSLXDV_STATE_CLASS_ATTRIBUTE},
    {GSLXDV_STATE_ATTRIBUTE_TYPE, "name", Action::kNone, GSLXDV_STATE_NAME},
    {GSLXDV_STATE_ATTRIBUTE_TYPE, "description", Action::kNone, GSLXDV_STATE_DESCRIPTION},
    {GSLXDV_STATE_ATTRIBUTE_TYPE, "object-identifier", Action::kNone,
     GSLXDV_STATE_OBJECT_IDENTIFIER},
    {GSLXDV_STATE_ATTRIBUTE_TYPE, "syntax", Action::kNone, GSLXDV_STATE_SYNTAX},
    {GSLXDV_STATE_ATTRIBUTE_TYPE, "equality", Action::kNone, GSLXDV_STATE_EQUALITY},
    {GSLXDV_STATE_ATTRIBUTE_TYPE, "ordering", Action::kNone, GSLXDV_STATE_ORDERING},
    {GSLXDV_STATE_ATTRIBUTE_TYPE, "substring", Action::kNone, GSLXDV_STATE_SUBSTRING},
};

// Where each state's rows start, built and checked at compile time.
inline constexpr uint16_t kTableStates = GSLXDV_STATE_SUBSTRING + 1;  // states with rows
inline constexpr RowIndex<kTableStates> kStateRows = indexRows<kTableStates>(kTransitions);

}  // namespace gslxdv

#endif  // QUILLOMAT_DSML_READER_TABLE_H
