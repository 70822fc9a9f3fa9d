// dsml/reader_common.h - what the DSML v1 and v2 readers both need, written
// once: element and attribute names compared as DSML compares them, the
// value text collected from the parser's events, base64 values decoded,
// and a failure recorded with its place. Internal (C++ only).
#ifndef QUILLOMAT_DSML_READER_COMMON_H
#define QUILLOMAT_DSML_READER_COMMON_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "dsml/reader_internal.h"
#include "util/strings.h"

namespace gslxdv {

// ---- Names -------------------------------------------------------------------------
// DSML names are compared ignoring case, and without any prefix (the XML
// layer hands over local names).

// Each byte as an ASCII name compares ignoring case: letters in lower case,
// other ASCII as it stands, and bytes beyond ASCII as 0xff, which no name
// holds.
inline constexpr auto kAsciiFolded = [] {
  struct Table {
    char of[256];
  } t{};
  for (int b = 0; b < 256; ++b) {
    t.of[b] = b >= 'A' && b <= 'Z' ? static_cast<char>(b + ('a' - 'A'))
              : b < 0x80           ? static_cast<char>(b)
                                   : static_cast<char>(0xff);
  }
  return t;
}();

// Whether name (NUL-terminated) equals lower (an ASCII name in lower case)
// ignoring the case of ASCII letters. The walk stops at the first
// difference, a NUL in name included, so it never reads past name's end.
// Inline: every element and attribute name of a document passes here.
[[nodiscard]] inline bool equalsAscii(const char *name, std::string_view lower) {
  for (std::size_t i = 0; i < lower.size(); ++i) {
    if (kAsciiFolded.of[static_cast<unsigned char>(name[i])] != lower[i]) return false;
  }
  return name[lower.size()] == '\0';
}

[[nodiscard]] bool hasNonAscii(const char *name);

// The first of count names (lower-case ASCII, given by nameAt) that name
// equals ignoring case, or count. ASCII decides on its own, since ASCII
// letters fold only to ASCII; a name with bytes beyond ASCII that matched
// none is compared again through full Unicode case folding, under which a
// name of another length may match.
template <class NameAt>
[[nodiscard]] std::size_t matchName(gsluctx *core, const char *name, std::size_t count,
                                    NameAt nameAt) {
  for (std::size_t i = 0; i < count; ++i) {
    if (equalsAscii(name, nameAt(i))) return i;
  }
  if (!hasNonAscii(name)) return count;
  for (std::size_t i = 0; i < count; ++i) {
    if (gslusicStrcasecmp(core, nameAt(i).data(), name) == GSLUS_CMP_EQUAL) return i;
  }
  return count;
}

// Whether name equals lower (lower-case ASCII) as DSML compares names.
[[nodiscard]] inline bool isName(gsluctx *core, const char *name, std::string_view lower) {
  return matchName(core, name, 1, [lower](std::size_t) { return lower; }) == 0;
}

// ---- Transition tables --------------------------------------------------------------

// Where each state's rows start in a transition table and how many there
// are: the rows of one state stand together, so a look-up reads only those.
struct StateRows {
  uint8_t first;
  uint8_t count;
};

template <uint16_t States>
struct RowIndex {
  StateRows of[States];
};

// The index of rows (each with a `state` below States), built at compile
// time: a row away from the others of its state would never be found, so
// the constant expression then fails to compile.
template <uint16_t States, class Row, std::size_t N>
[[nodiscard]] constexpr RowIndex<States> indexRows(const Row (&rows)[N]) {
  RowIndex<States> index{};
  for (uint8_t i = 0; i < N; ++i) {
    StateRows &r = index.of[rows[i].state];
    if (r.count == 0) r.first = i;
    if (r.first + r.count != i) throw "the rows of a state must stand together";
    ++r.count;
  }
  return index;
}

// The row of state for the element name, or null.
template <uint16_t States, class Row, std::size_t N>
[[nodiscard]] const Row *findRow(gsluctx *core, const Row (&rows)[N],
                                 const RowIndex<States> &index, uint16_t state, const char *name) {
  if (state >= States) return nullptr;
  const StateRows r = index.of[state];
  const Row *first = &rows[r.first];
  const std::size_t i =
      matchName(core, name, r.count, [first](std::size_t k) { return first[k].element; });
  return i < r.count ? &first[i] : nullptr;
}

// text without the XML white space (space, tab, line feed, carriage
// return) at either end, as the XML Schema reads booleans and type names.
[[nodiscard]] std::string_view stripXmlSpace(std::string_view text);

// ---- Value text ----------------------------------------------------------------------
// The pending text lives in a buffer the machine keeps from one value to the
// next, so a value costs no allocation of its own; a buffer grown past
// kRetainedTextBytes by a long value is given back once the value was
// taken (keepOrReleaseText).

// Forgets the pending text; the buffer stays for the next.
inline void dropText(GslxdvText *text) { text->length = 0; }

// Gives the buffer back.
void releaseText(gsluctx *core, GslxdvText *text);

// After a value was taken: the buffer stays for the next value unless a
// long one grew it.
inline constexpr uint32_t kRetainedTextBytes = 64 * 1024;
inline void keepOrReleaseText(gsluctx *core, GslxdvText *text) {
  dropText(text);
  if (text->capacity > kRetainedTextBytes) releaseText(core, text);
}

// Makes the length bytes the pending text, NUL-terminated. The copy stops at
// a NUL byte (and pads with NULs), while the recorded length stays the full
// length. GSLXDV_NO_MEMORY (nothing pending then) or GSLXDV_OK.
[[nodiscard]] int replaceText(gsluctx *core, GslxdvText *text, const char *bytes,
                              uint32_t length);

// Adds the length bytes to the pending text (which may be none yet),
// NUL-terminated. GSLXDV_NO_MEMORY (the pending text is then dropped) or
// GSLXDV_OK.
[[nodiscard]] int appendText(gsluctx *core, GslxdvText *text, const char *bytes, uint32_t length);

// The pending text as a value: its bytes, or a value of length 0 with no
// bytes when there is none.
[[nodiscard]] inline BERVal pendingValue(const GslxdvText &text) {
  return text.length != 0 ? BERVal{text.length, text.bytes} : BERVal{0, nullptr};
}

// Replaces the pending base64 text by the bytes it encodes, NUL-terminated,
// in place: the bytes never outgrow the text they come from. No pending
// text decodes as empty text does. GSLXDV_BAD_BASE64 (the text is then
// dropped) or GSLXDV_OK.
[[nodiscard]] int decodeText(GslxdvText *text);

// ---- Attributes ----------------------------------------------------------------------

// Creates into *attribute the counted-value attribute named name when rule
// (GSLCLE_NAMES_*) accepts the name: GSLCLE_OK, GSLCLEGAL_REFUSED with
// nothing created, or the entry model's own failure. The rule keeps a
// document from forging the structure of the LDIF written for it.
[[nodiscard]] int createNamedAttribute(const char *name, int rule, LDAPAttribute **attribute);

// ---- Entries --------------------------------------------------------------------------

// Hands *entry to callback (when both are there); 0 lets the entry be
// destroyed and *entry nulled. A refusal keeps the entry, to be released
// with the other members when the parse fails, records the callback's
// status as the cause in *d (where xml stands) and returns it.
[[nodiscard]] int deliverEntry(LDAPEntry **entry, GslxdvEntryCallback callback, void *arg,
                               GslxdvDiagnostic *d, const xmlctx *xml);

// ---- Failures ------------------------------------------------------------------------

// The cause an entry-model failure stands for: out of memory, or a step the
// reader did not expect to fail.
[[nodiscard]] int32_t causeOfModelStatus(int model_status);

// Whether d holds a failure (a warning is not one).
[[nodiscard]] bool hasFailure(const GslxdvDiagnostic &d);

// Copies detail (null: "") into d, cut to fit.
void setDetail(GslxdvDiagnostic *d, const char *detail);

// Records why the document fails, where xml stands: the tag being reported
// (for text, the tag that follows it). The position is worked out only
// here, as expat does it from the bytes read since it last did, which is
// costly when asked often. The first cause recorded is the one that
// counts.
void recordFailure(GslxdvDiagnostic *d, const xmlctx *xml, int32_t cause, const char *detail);

}  // namespace gslxdv

#endif  // QUILLOMAT_DSML_READER_COMMON_H
