// entry/entry.cc - the directory entry and its attributes. Contracts in
// entry/entry.h.
#include "entry/entry.h"

#include <cstddef>
#include <cstring>
#include <string_view>

#include "core/memory.h"
#include "core/owned.h"
#include "entry/names.h"
#include "util/strings.h"

namespace {

using gslu::ContextFree;
using gslu::Owned;

// The allocator takes 32-bit sizes.
constexpr uint64_t kMaxBlock = UINT32_MAX;

// A block for one T, or null.
template <class T>
[[nodiscard]] Owned<T> allocateRecord(gsluctx *core) {
  return Owned<T>(static_cast<T *>(gslummMalloc(core, sizeof(T))), ContextFree{core});
}

// A block for one T followed by tail bytes, or null, so that what the
// record owns and never gives away (an attribute's name, an entry's DN, a
// stored value's bytes) needs no block of its own.
template <class T>
[[nodiscard]] Owned<T> allocateRecordWithTail(gsluctx *core, uint64_t tail) {
  // Detect and prevent integer overflow: the block must fit a 32-bit size.
  if (tail > kMaxBlock - sizeof(T)) return Owned<T>(nullptr, ContextFree{core});
  const auto size = static_cast<uint32_t>(sizeof(T) + tail);
  return Owned<T>(static_cast<T *>(gslummMalloc(core, size)), ContextFree{core});
}

// The bytes after a record made by allocateRecordWithTail.
template <class T>
[[nodiscard]] char *tailOf(T *record) {
  return reinterpret_cast<char *>(record + 1);
}

// Copies the NUL-terminated s of `length` bytes behind record and returns
// the copy.
template <class T>
char *copyBehind(T *record, const char *s, size_t length) {
  char *copy = tailOf(record);
  std::memcpy(copy, s, length + 1);
  return copy;
}

[[nodiscard]] bool isEntryChangeType(int t) {
  return t == GSLCLE_CHANGE_ADD || t == GSLCLE_CHANGE_DELETE || t == GSLCLE_CHANGE_MODIFY ||
         t == GSLCLE_CHANGE_MODRDN;
}

[[nodiscard]] bool isAttrChangeType(int t) {
  return t == GSLCLE_ATTR_ADD || t == GSLCLE_ATTR_DELETE || t == GSLCLE_ATTR_REPLACE;
}

[[nodiscard]] bool isModrdn(const LDAPEntry *entry) {
  return entry->change_type == GSLCLE_CHANGE_MODRDN;
}

// A value as a kind-128 attribute stores it: the BERVal and its bytes in
// one block, which only the attribute frees. Like gslcleBERValNEW, a null or
// empty source gives length 0 and null bytes.
[[nodiscard]] BERVal *newStoredValue(gsluctx *core, const BERVal *value) {
  const size_t length = value->bytes != nullptr ? value->length : 0;
  Owned<BERVal> record = allocateRecordWithTail<BERVal>(core, length);
  if (record == nullptr) return nullptr;
  *record = BERVal{0, nullptr};
  if (length != 0) {
    std::memcpy(tailOf(record.get()), value->bytes, length);
    record->length = length;
    record->bytes = tailOf(record.get());
  }
  return record.release();
}

void freeStoredValue(gsluctx *core, BERVal *value) { (void)gslumfFree(core, value); }

void freeBerval(gsluctx *core, BERVal *value) {
  if (value == nullptr) return;
  (void)gslumfFree(core, value->bytes);
  (void)gslumfFree(core, value);
}

// The two kinds of null-terminated value arrays, and their release.
void freeStringArray(gsluctx *core, char **values) {
  for (char **v = values; *v != nullptr; ++v) (void)gslumfFree(core, *v);
  (void)gslumfFree(core, values);
}

void freeBervalArray(gsluctx *core, BERVal **values) {
  for (BERVal **v = values; *v != nullptr; ++v) freeBerval(core, *v);
  (void)gslumfFree(core, values);
}

// Builds a null-terminated array of count elements made by make(i). When an
// element cannot be made, the array is cut there (its null entry) and
// released whole with release.
template <class T, class Make>
[[nodiscard]] int buildArray(gsluctx *core, uint32_t count, T ***out, Make make,
                             void (*release)(gsluctx *, T **)) {
  // Detect and prevent integer overflow: count elements plus the null entry.
  const uint64_t bytes = (uint64_t{count} + 1) * sizeof(T *);
  if (bytes > kMaxBlock) return GSLCLE_NO_MEMORY;
  auto **array = static_cast<T **>(gslummMalloc(core, static_cast<uint32_t>(bytes)));
  if (array == nullptr) return GSLCLE_NO_MEMORY;
  for (uint32_t i = 0; i < count; ++i) {
    array[i] = make(i);
    if (array[i] == nullptr) {
      release(core, array);
      return GSLCLE_NO_MEMORY;
    }
  }
  array[count] = nullptr;
  *out = array;
  return GSLCLE_OK;
}

// Stores value at index count, growing the array first when count is a
// multiple of the step (0 included). On failure the attribute is unchanged
// and value is still the caller's.
[[nodiscard]] int appendValue(gsluctx *core, LDAPAttribute *attribute, void *value) {
  const uint32_t count = attribute->count;
  if (count % GSLCLE_VALUES_STEP == 0) {
    // Detect and prevent integer overflow: the new array must fit a 32-bit
    // block.
    const uint64_t slots = uint64_t{count} + GSLCLE_VALUES_STEP;
    if (slots * sizeof(void *) > kMaxBlock) return GSLCLE_NO_MEMORY;
    void *grown = gslumrRealloc(core, static_cast<uint32_t>(slots * sizeof(void *)),
                                attribute->values, static_cast<uint32_t>(count * sizeof(void *)));
    if (grown == nullptr) return GSLCLE_NO_MEMORY;
    attribute->values = static_cast<void **>(grown);
  }
  attribute->values[count] = value;
  attribute->count = count + 1;
  return GSLCLE_OK;
}

// The checks and the append shared by both value kinds: make() copies the
// value, release() frees the copy when it cannot be stored.
template <class T, class Make>
[[nodiscard]] int addCopiedValue(const gslcClientHandle *ctx, LDAPAttribute *attribute,
                                 const T *value, uint8_t kind, Make make,
                                 void (*release)(gsluctx *, T *)) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (attribute == nullptr || value == nullptr) return GSLCLE_NULL_ARG;
  if (attribute->value_kind != kind) return GSLCLE_NOT_APPLICABLE;
  T *copy = make(core);
  if (copy == nullptr) return GSLCLE_NO_MEMORY;
  if (const int st = appendValue(core, attribute, copy); st != GSLCLE_OK) {
    release(core, copy);
    return st;
  }
  return GSLCLE_OK;
}

void freeString(gsluctx *core, char *s) { (void)gslumfFree(core, s); }

// The rename fields of a modrdn entry: a copy of one, or a replacement.
[[nodiscard]] int getRenameField(const gslcClientHandle *ctx, const LDAPEntry *entry,
                                 char *LDAPEntry::*field, char **out) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (entry == nullptr || out == nullptr) return GSLCLE_NULL_ARG;
  *out = nullptr;
  if (!isModrdn(entry)) return GSLCLE_NOT_APPLICABLE;
  if (entry->*field == nullptr) return GSLCLE_OK;
  *out = gslussdStrdup(core, entry->*field);
  return *out != nullptr ? GSLCLE_OK : GSLCLE_NO_MEMORY;
}

[[nodiscard]] int setRenameField(const gslcClientHandle *ctx, LDAPEntry *entry,
                                 char *LDAPEntry::*field, const char *value, bool null_allowed) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (entry == nullptr || (value == nullptr && !null_allowed)) return GSLCLE_NULL_ARG;
  if (!isModrdn(entry)) return GSLCLE_NOT_APPLICABLE;
  (void)gslumfFree(core, entry->*field);
  // Deliberate: a failed copy leaves the field null and still reports
  // success; readers of the field treat null as "not set".
  entry->*field = gslussdStrdup(core, value);
  return GSLCLE_OK;
}

// The list's release callback for the attributes of an entry.
int releaseAttribute(gsluctx *core, void *attribute) {
  return gslcledaDestLDAPAttr(core, static_cast<LDAPAttribute *>(attribute));
}

// The list's release callback for the controls of an entry: each is one
// block with its OID and value.
int releaseControl(gsluctx *core, void *control) { return gslumfFree(core, control); }

// A control as the entry keeps it: the record, then the OID and its NUL,
// then the value's bytes, in one block.
[[nodiscard]] LDAPEntryControl *newControl(gsluctx *core, std::string_view oid, bool critical,
                                           const BERVal *value) {
  const size_t value_length = value != nullptr && value->bytes != nullptr ? value->length : 0;
  // Detect and prevent integer overflow: the tail is summed in 64 bits and
  // checked against the block size by allocateRecordWithTail.
  const uint64_t tail = uint64_t{oid.size()} + 1 + value_length;
  Owned<LDAPEntryControl> record = allocateRecordWithTail<LDAPEntryControl>(core, tail);
  if (record == nullptr) return nullptr;
  *record = LDAPEntryControl{};
  record->oid = tailOf(record.get());
  std::memcpy(record->oid, oid.data(), oid.size());
  record->oid[oid.size()] = '\0';
  record->critical = critical ? 1 : 0;
  record->has_value = value != nullptr ? 1 : 0;
  if (value_length != 0) {
    record->value.bytes = record->oid + oid.size() + 1;
    std::memcpy(record->value.bytes, value->bytes, value_length);
    record->value.length = value_length;
  }
  return record.release();
}

// Creates list *list, whose elements keep their link field link_offset
// bytes in, when it does not exist yet.
[[nodiscard]] int ensureList(gsluctx *core, GslulsList **list, uint64_t link_offset) {
  if (*list != nullptr) return GSLCLE_OK;
  // The list reports a failed allocation by a null list and status 0.
  if (const int st = gslulscsCreateSList(core, link_offset, list); st != GSLULS_OK) return st;
  return *list != nullptr ? GSLCLE_OK : GSLCLE_NO_MEMORY;
}

}  // namespace

extern "C" {

// ---- Entry operations ---------------------------------------------------------

int gslcleceCreateLDAPEntry(const gslcClientHandle *ctx, const char *dn, LDAPEntry **entry) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (dn == nullptr || entry == nullptr) return GSLCLE_NULL_ARG;
  *entry = nullptr;
  const size_t dn_length = std::strlen(dn);
  Owned<LDAPEntry> record = allocateRecordWithTail<LDAPEntry>(core, uint64_t{dn_length} + 1);
  if (record == nullptr) return GSLCLE_NO_MEMORY;
  *record = LDAPEntry{};
  record->dn = copyBehind(record.get(), dn, dn_length);
  record->change_type = GSLCLE_CHANGE_ADD;
  *entry = record.release();
  return GSLCLE_OK;
}

int gslcledeDestroyLDAPEntry(const gslcClientHandle *ctx, LDAPEntry *entry) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (entry == nullptr) return GSLCLE_NULL_ARG;
  // The DN lives in the entry's own block.
  if (entry->attributes != nullptr) {
    (void)gslulsdDestroySList(core, entry->attributes, releaseAttribute);
  }
  if (entry->controls != nullptr) (void)gslulsdDestroySList(core, entry->controls, releaseControl);
  (void)gslumfFree(core, entry->new_rdn);
  (void)gslumfFree(core, entry->new_superior);
  (void)gslumfFree(core, entry);
  return GSLCLE_OK;
}

int gslcleaaAddLDAPAttribute(const gslcClientHandle *ctx, LDAPEntry *entry,
                             LDAPAttribute *attribute) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (entry == nullptr || attribute == nullptr) return GSLCLE_NULL_ARG;
  if (entry->change_type != GSLCLE_CHANGE_ADD && entry->change_type != GSLCLE_CHANGE_MODIFY) {
    return GSLCLE_NOT_APPLICABLE;
  }
  if (const int st = ensureList(core, &entry->attributes, offsetof(LDAPAttribute, next));
      st != GSLCLE_OK) {
    return st;
  }
  // Appended at the tail whatever the list's cursor, so attributes keep the
  // order in which they were added.
  return gslulsapAppend(core, entry->attributes, attribute);
}

int gslclegdGetDN(const gslcClientHandle *ctx, const LDAPEntry *entry, char **dn) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (entry == nullptr || dn == nullptr) return GSLCLE_NULL_ARG;
  *dn = gslussdStrdup(core, entry->dn);
  return *dn != nullptr ? GSLCLE_OK : GSLCLE_NO_MEMORY;
}

int gslcleganGetAttributeByName(const gslcClientHandle *ctx, const LDAPEntry *entry,
                                const char *name, LDAPAttribute **attribute) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (entry == nullptr || name == nullptr || attribute == nullptr) return GSLCLE_NULL_ARG;
  *attribute = nullptr;
  if (entry->attributes == nullptr) return GSLCLE_OK;
  // Walks the links from the head, which leaves the list's cursor alone.
  for (void *e = entry->attributes->head; e != nullptr; e = static_cast<LDAPAttribute *>(e)->next) {
    auto *candidate = static_cast<LDAPAttribute *>(e);
    if (gslcleAttrNameCmpCBF(ctx, candidate, name) == GSLCLE_CMP_EQUAL) {
      *attribute = candidate;
      break;
    }
  }
  return GSLCLE_OK;
}

int gslclegaGetAttributes(const gslcClientHandle *ctx, const LDAPEntry *entry,
                          GslulsList **attributes) {
  if (gslccx_Getgsluctx(ctx) == nullptr) return GSLCLE_NO_CONTEXT;
  if (entry == nullptr || attributes == nullptr) return GSLCLE_NULL_ARG;
  *attributes = entry->attributes;
  return GSLCLE_OK;
}

int gslclesSize(const gslcClientHandle *ctx, const LDAPEntry *entry, uint32_t *count) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (entry == nullptr || count == nullptr) return GSLCLE_NULL_ARG;
  *count = 0;
  if (entry->attributes == nullptr) return GSLCLE_OK;
  return gslulssSize(core, entry->attributes, count);
}

int gslclegctGetChangeType(const gslcClientHandle *ctx, const LDAPEntry *entry,
                           uint8_t *change_type) {
  if (gslccx_Getgsluctx(ctx) == nullptr) return GSLCLE_NO_CONTEXT;
  if (entry == nullptr || change_type == nullptr) return GSLCLE_NULL_ARG;
  *change_type = entry->change_type;
  return GSLCLE_OK;
}

int gslclesctSetChangeType(const gslcClientHandle *ctx, LDAPEntry *entry, int change_type) {
  if (gslccx_Getgsluctx(ctx) == nullptr) return GSLCLE_NO_CONTEXT;
  if (entry == nullptr) return GSLCLE_NULL_ARG;
  if (!isEntryChangeType(change_type)) return GSLCLE_BAD_CHANGE_TYPE;
  entry->change_type = static_cast<uint8_t>(change_type);
  entry->explicit_change_type = 1;
  return GSLCLE_OK;
}

int gslclegnGetNewRDN(const gslcClientHandle *ctx, const LDAPEntry *entry, char **new_rdn) {
  return getRenameField(ctx, entry, &LDAPEntry::new_rdn, new_rdn);
}

int gslclesnSetNewRDN(const gslcClientHandle *ctx, LDAPEntry *entry, const char *new_rdn) {
  return setRenameField(ctx, entry, &LDAPEntry::new_rdn, new_rdn, false);
}

int gslclegnsGetNewSuperior(const gslcClientHandle *ctx, const LDAPEntry *entry,
                            char **new_superior) {
  return getRenameField(ctx, entry, &LDAPEntry::new_superior, new_superior);
}

int gslclesnsSetNewSuperior(const gslcClientHandle *ctx, LDAPEntry *entry,
                            const char *new_superior) {
  // Deliberate: unlike the new RDN, null is accepted and clears the field.
  return setRenameField(ctx, entry, &LDAPEntry::new_superior, new_superior, true);
}

int gslclegdoGetDeleteOldRdn(const gslcClientHandle *ctx, const LDAPEntry *entry,
                             uint8_t *delete_old_rdn) {
  if (gslccx_Getgsluctx(ctx) == nullptr) return GSLCLE_NO_CONTEXT;
  if (entry == nullptr || delete_old_rdn == nullptr) return GSLCLE_NULL_ARG;
  *delete_old_rdn = 0;
  if (!isModrdn(entry)) return GSLCLE_NOT_APPLICABLE;
  *delete_old_rdn = entry->delete_old_rdn;
  return GSLCLE_OK;
}

int gslclesdoSetDeleteOldRdn(const gslcClientHandle *ctx, LDAPEntry *entry, int delete_old_rdn) {
  if (gslccx_Getgsluctx(ctx) == nullptr) return GSLCLE_NO_CONTEXT;
  if (entry == nullptr) return GSLCLE_NULL_ARG;
  if (!isModrdn(entry)) return GSLCLE_NOT_APPLICABLE;
  entry->delete_old_rdn = delete_old_rdn != 0 ? 1 : 0;
  return GSLCLE_OK;
}

int gslcleacAddControl(const gslcClientHandle *ctx, LDAPEntry *entry, const char *oid,
                       int critical, const BERVal *value) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (entry == nullptr || oid == nullptr) return GSLCLE_NULL_ARG;
  if (gslclecoCheckControlOid(oid) != GSLCLE_OK) return GSLCLE_BAD_OID;
  if (const int st = ensureList(core, &entry->controls, offsetof(LDAPEntryControl, next));
      st != GSLCLE_OK) {
    return st;
  }
  LDAPEntryControl *control = newControl(core, oid, critical != 0, value);
  if (control == nullptr) return GSLCLE_NO_MEMORY;
  const int st = gslulsapAppend(core, entry->controls, control);
  if (st != GSLULS_OK) (void)releaseControl(core, control);
  return st;
}

int gslclecoCheckControlOid(const char *oid) {
  return oid != nullptr && gslclenoIsControlOid(oid, std::strlen(oid)) != 0 ? GSLCLE_OK
                                                                            : GSLCLE_BAD_OID;
}

// ---- Attribute operations -----------------------------------------------------

int gslcleclaCreateLDAPAttribute(const gslcClientHandle *ctx, const char *name, int value_kind,
                                 LDAPAttribute **attribute) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (name == nullptr || attribute == nullptr) return GSLCLE_NULL_ARG;
  *attribute = nullptr;
  // Only the low 8 bits name the kind; the rest of the word is not looked at.
  const auto kind = static_cast<uint8_t>(value_kind & 0xff);
  if (kind != GSLCLE_VALUES_TEXT && kind != GSLCLE_VALUES_BINARY) return GSLCLE_BAD_VALUE_KIND;
  if (name[0] == '\0') return GSLCLE_EMPTY_NAME;
  const size_t name_length = std::strlen(name);
  Owned<LDAPAttribute> record =
      allocateRecordWithTail<LDAPAttribute>(core, uint64_t{name_length} + 1);
  if (record == nullptr) return GSLCLE_NO_MEMORY;
  *record = LDAPAttribute{};
  record->name = copyBehind(record.get(), name, name_length);
  record->value_kind = kind;
  record->change_type = GSLCLE_ATTR_ADD;
  *attribute = record.release();
  return GSLCLE_OK;
}

void gslcledaDestroyLDAPAttribute(const gslcClientHandle *ctx, LDAPAttribute *attribute) {
  (void)gslcledaDestLDAPAttr(gslccx_Getgsluctx(ctx), attribute);
}

int gslcledaDestLDAPAttr(gsluctx *core, LDAPAttribute *attribute) {
  gsluctx *g = gslu::resolveContext(core);
  if (g == nullptr) return GSLCLE_NO_CORE;
  if (attribute == nullptr) return GSLCLE_NULL_ARG;
  // Each value is one block, whatever its kind; the name lives in the
  // attribute's own block.
  for (uint32_t i = 0; i < attribute->count; ++i) (void)gslumfFree(g, attribute->values[i]);
  (void)gslumfFree(g, attribute->values);
  (void)gslumfFree(g, attribute);
  return GSLCLE_OK;
}

int gslcleavAddAttrValue(const gslcClientHandle *ctx, LDAPAttribute *attribute, const char *value) {
  return addCopiedValue<char>(
      ctx, attribute, value, GSLCLE_VALUES_TEXT,
      [value](gsluctx *core) { return gslussdStrdup(core, value); }, freeString);
}

int gslcleabvAddAttrBValue(const gslcClientHandle *ctx, LDAPAttribute *attribute,
                           const BERVal *value) {
  return addCopiedValue<BERVal>(
      ctx, attribute, value, GSLCLE_VALUES_BINARY,
      [value](gsluctx *core) { return newStoredValue(core, value); }, freeStoredValue);
}

int gslclegatnGetAttrName(const gslcClientHandle *ctx, const LDAPAttribute *attribute,
                          char **name) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (attribute == nullptr || name == nullptr) return GSLCLE_NULL_ARG;
  *name = gslussdStrdup(core, attribute->name);
  return *name != nullptr ? GSLCLE_OK : GSLCLE_NO_MEMORY;
}

int gslclegavGetAttrValues(const gslcClientHandle *ctx, const LDAPAttribute *attribute,
                           char ***values) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (attribute == nullptr || values == nullptr) return GSLCLE_NULL_ARG;
  *values = nullptr;
  if (attribute->value_kind == GSLCLE_VALUES_BINARY) return GSLCLE_NOT_APPLICABLE;
  return buildArray<char>(
      core, attribute->count, values,
      [&](uint32_t i) {
        return gslussdStrdup(core, static_cast<const char *>(attribute->values[i]));
      },
      freeStringArray);
}

int gslclegabvGetAttrBValues(const gslcClientHandle *ctx, const LDAPAttribute *attribute,
                             BERVal ***values) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_NO_CONTEXT;
  if (attribute == nullptr || values == nullptr) return GSLCLE_NULL_ARG;
  *values = nullptr;
  const bool binary = attribute->value_kind == GSLCLE_VALUES_BINARY;
  return buildArray<BERVal>(
      core, attribute->count, values,
      [&](uint32_t i) {
        const void *v = attribute->values[i];
        if (binary) return gslcleBERValDUP(ctx, static_cast<const BERVal *>(v));
        const auto *s = static_cast<const char *>(v);
        return gslcleBERValNEW(ctx, s, std::strlen(s));
      },
      freeBervalArray);
}

int gslcleasAttrSize(const gslcClientHandle *ctx, const LDAPAttribute *attribute, uint32_t *count) {
  if (gslccx_Getgsluctx(ctx) == nullptr) return GSLCLE_NO_CONTEXT;
  if (attribute == nullptr || count == nullptr) return GSLCLE_NULL_ARG;
  *count = attribute->count;
  return GSLCLE_OK;
}

int gslclegactGetAttrChangeType(const gslcClientHandle *ctx, const LDAPAttribute *attribute,
                                uint8_t *change_type) {
  if (gslccx_Getgsluctx(ctx) == nullptr) return GSLCLE_NO_CONTEXT;
  if (attribute == nullptr || change_type == nullptr) return GSLCLE_NULL_ARG;
  *change_type = attribute->change_type;
  return GSLCLE_OK;
}

int gslclegastSetAttrChangeType(const gslcClientHandle *ctx, LDAPAttribute *attribute,
                                int change_type) {
  if (gslccx_Getgsluctx(ctx) == nullptr) return GSLCLE_NO_CONTEXT;
  if (attribute == nullptr) return GSLCLE_NULL_ARG;
  if (!isAttrChangeType(change_type)) return GSLCLE_BAD_CHANGE_TYPE;
  attribute->change_type = static_cast<uint8_t>(change_type);
  return GSLCLE_OK;
}

int gslclesiSetAttrIncrement(const gslcClientHandle *ctx, LDAPAttribute *attribute) {
  if (gslccx_Getgsluctx(ctx) == nullptr) return GSLCLE_NO_CONTEXT;
  if (attribute == nullptr) return GSLCLE_NULL_ARG;
  attribute->change_type = GSLCLE_ATTR_INCREMENT;
  return GSLCLE_OK;
}

int32_t gslcleAttrNameCmpCBF(const gslcClientHandle *ctx, const LDAPAttribute *attribute,
                             const char *name) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return GSLCLE_CMP_NO_CONTEXT;
  if (attribute == nullptr || name == nullptr) return GSLCLE_CMP_NULL_ARG;
  // The stored name is compared in place: nothing changes it meanwhile, so
  // a copy would only add an allocation that could fail.
  return gslusicStrcasecmp(core, attribute->name, name);
}

// ---- Counted-string helpers ----------------------------------------------------

BERVal *gslcleBERValNEW(const gslcClientHandle *ctx, const char *bytes, size_t length) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr) return nullptr;
  Owned<BERVal> record = allocateRecord<BERVal>(core);
  if (record == nullptr) return nullptr;
  *record = BERVal{0, nullptr};
  // A null source, or an empty one, has no bytes: the allocator hands out no
  // block of 0 bytes.
  if (bytes == nullptr || length == 0) return record.release();
  if (length > kMaxBlock) return nullptr;
  auto *copy = static_cast<char *>(gslummMalloc(core, static_cast<uint32_t>(length)));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, bytes, length);
  record->length = length;
  record->bytes = copy;
  return record.release();
}

BERVal *gslcleBERValDUP(const gslcClientHandle *ctx, const BERVal *value) {
  if (value == nullptr) return nullptr;
  return gslcleBERValNEW(ctx, value->bytes, value->length);
}

void gslcleValsFree(const gslcClientHandle *ctx, char **values) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr || values == nullptr) return;
  freeStringArray(core, values);
}

void gslcleBERValsFree(const gslcClientHandle *ctx, BERVal **values) {
  gsluctx *core = gslccx_Getgsluctx(ctx);
  if (core == nullptr || values == nullptr) return;
  freeBervalArray(core, values);
}

}  // extern "C"
