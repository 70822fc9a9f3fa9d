// Fuzz target for the LDIF record writer (gslclegalGetAsLDIF and the string
// builders beside it) over entries built with the entry model: a content,
// explicit add, modify, modrdn or delete record, a DN, up to seven
// attributes of either value kind and change type with up to seven values
// each, and for modrdn the rename fields. Names are at most 69 bytes and
// rename fields 64, so that every line the writer makes, headers included,
// fits in 78 bytes. Checked:
//   - an entry holding a name that gslclecnCheckAttrName refuses, or a
//     rename field with a line break, gives status 2 and no text, and the
//     documented rule refuses exactly those names;
//   - any other entry gives status 0 and, byte for byte, the record the
//     plain rendering of ldif_model.h gives, with the shape of any LDIF text
//     (ldif_model.h's checkShape);
//   - the attribute, content, modify and modrdn builders give their pieces
//     of the same rendering (null where they have nothing to say);
//   - with allocations refused after a budget the input chooses, the record
//     is either whole or not there at all (status 5), and no block is left
//     behind either way.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "core/memory.h"
#include "entry/entry.h"
#include "entry/ldif_record.h"
#include "fuzz_support.h"
#include "ldif_model.h"

namespace {

constexpr size_t kMaxDn = 200;
constexpr size_t kMaxName = 69;
constexpr size_t kMaxRenameField = 64;
constexpr size_t kMaxValue = 300;
constexpr uint32_t kMaxAttributes = 8;
constexpr uint32_t kMaxValues = 8;

enum RecordKind { kContent, kExplicitAdd, kModify, kModRdn, kDelete, kRecordKinds };

struct EntryDeleter {
  void operator()(LDAPEntry *e) const { (void)gslcledeDestroyLDAPEntry(nullptr, e); }
};

void addValues(qfuzz::Input &in, LDAPAttribute *a) {
  const uint32_t count = in.below(kMaxValues);
  for (uint32_t i = 0; i < count; ++i) {
    const std::string v = in.string(kMaxValue);
    if (a->value_kind == GSLCLE_VALUES_BINARY) {
      const BERVal counted{v.size(), const_cast<char *>(v.data())};
      FUZZ_CHECK(gslcleabvAddAttrBValue(nullptr, a, &counted) == GSLCLE_OK);
    } else {
      FUZZ_CHECK(gslcleavAddAttrValue(nullptr, a, v.c_str()) == GSLCLE_OK);
    }
  }
}

void addAttributes(qfuzz::Input &in, LDAPEntry *entry) {
  const uint32_t count = in.below(kMaxAttributes);
  for (uint32_t i = 0; i < count; ++i) {
    const std::string name = in.string(kMaxName);
    const int kind = in.flag() ? GSLCLE_VALUES_BINARY : GSLCLE_VALUES_TEXT;
    LDAPAttribute *a = nullptr;
    const int st = gslcleclaCreateLDAPAttribute(nullptr, name.c_str(), kind, &a);
    if (name.c_str()[0] == '\0') {
      FUZZ_CHECK(st == GSLCLE_EMPTY_NAME && a == nullptr);
      continue;
    }
    FUZZ_CHECK(st == GSLCLE_OK && a != nullptr);
    FUZZ_CHECK(gslclegastSetAttrChangeType(nullptr, a, GSLCLE_ATTR_ADD + in.below(3)) == GSLCLE_OK);
    addValues(in, a);
    FUZZ_CHECK(gslcleaaAddLDAPAttribute(nullptr, entry, a) == GSLCLE_OK);
  }
}

void setRecordKind(qfuzz::Input &in, LDAPEntry *entry, int kind) {
  switch (kind) {
    case kExplicitAdd:
      FUZZ_CHECK(gslclesctSetChangeType(nullptr, entry, GSLCLE_CHANGE_ADD) == GSLCLE_OK);
      break;
    case kModify:
      FUZZ_CHECK(gslclesctSetChangeType(nullptr, entry, GSLCLE_CHANGE_MODIFY) == GSLCLE_OK);
      break;
    case kModRdn: {
      FUZZ_CHECK(gslclesctSetChangeType(nullptr, entry, GSLCLE_CHANGE_MODRDN) == GSLCLE_OK);
      if (in.flag()) {
        const std::string rdn = in.string(kMaxRenameField);
        FUZZ_CHECK(gslclesnSetNewRDN(nullptr, entry, rdn.c_str()) == GSLCLE_OK);
      }
      if (in.flag()) {
        const std::string superior = in.string(kMaxRenameField);
        FUZZ_CHECK(gslclesnsSetNewSuperior(nullptr, entry, superior.c_str()) == GSLCLE_OK);
      }
      FUZZ_CHECK(gslclesdoSetDeleteOldRdn(nullptr, entry, in.flag()) == GSLCLE_OK);
      break;
    }
    case kDelete:
      FUZZ_CHECK(gslclesctSetChangeType(nullptr, entry, GSLCLE_CHANGE_DELETE) == GSLCLE_OK);
      break;
    default: break;
  }
}

// A text a builder returned, compared with what it should be (null for
// nothing) and freed.
void expectText(char *text, const char *expected) {
  if (expected == nullptr) {
    FUZZ_CHECK(text == nullptr);
    return;
  }
  FUZZ_CHECK(text != nullptr && std::string_view(text) == expected);
  gslumfFree(nullptr, text);
}

void checkBuilders(const LDAPEntry *entry, bool refused) {
  qfuzz::forEachAttribute(entry, [&](const LDAPAttribute *a) {
    const bool allowed = qfuzz::nameAllowed(a->name);
    FUZZ_CHECK((gslclecnCheckAttrName(a->name) == GSLCLEGAL_OK) == allowed);
    for (const bool header : {false, true}) {
      const std::string lines = qfuzz::attributeLines(a, header);
      char *text =
          gslcleGetAttrAsLDIF(nullptr, a, header ? GSLCLE_LDIF_HEADER : GSLCLE_LDIF_NO_HEADER);
      expectText(text, allowed ? lines.c_str() : nullptr);
    }
  });
  const bool has_attributes = qfuzz::attributeCount(entry) > 0;
  const std::string content = qfuzz::contentBody(entry);
  expectText(gslcleGetAddStr(nullptr, entry),
             refused || content.empty() ? nullptr : content.c_str());
  const std::string modify = qfuzz::modifyBody(entry);
  expectText(gslcleGetModifyStr(nullptr, entry),
             refused || !has_attributes ? nullptr : modify.c_str());
  const std::string modrdn = qfuzz::modRdnBody(entry);
  expectText(gslcleGetModRDNStr(nullptr, entry), refused ? nullptr : modrdn.c_str());
}

// Renders the entry with allocations refused after `budget` of them.
void checkRecord(const LDAPEntry *entry, bool refused, uint64_t budget) {
  const std::string expected = refused ? std::string() : qfuzz::record(entry);
  qfuzz::CountingAllocator allocator(budget);
  char *text = reinterpret_cast<char *>(1);  // must be cleared
  const int st = gslclegalGetAsLDIF(nullptr, entry, &text);
  if (refused) {
    FUZZ_CHECK(st == GSLCLEGAL_REFUSED && text == nullptr);
  } else if (st == GSLCLEGAL_NO_MEMORY) {
    FUZZ_CHECK(qfuzz::CountingAllocator::refused() > 0 && text == nullptr);
  } else {
    FUZZ_CHECK(st == GSLCLEGAL_OK && text != nullptr);
    FUZZ_CHECK(std::string_view(text) == expected);
    qfuzz::checkShape(text, qfuzz::kLineLimit);
    gslumfFree(nullptr, text);
  }
  FUZZ_CHECK(qfuzz::CountingAllocator::live() == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  qfuzz::setUpProcess();
  qfuzz::Input in(data, size);
  const int kind = static_cast<int>(in.below(kRecordKinds));
  const bool limited = in.flag();
  const uint64_t budget = in.byte();
  const std::string dn = in.string(kMaxDn);

  LDAPEntry *raw = nullptr;
  FUZZ_CHECK(gslcleceCreateLDAPEntry(nullptr, dn.c_str(), &raw) == GSLCLE_OK);
  const std::unique_ptr<LDAPEntry, EntryDeleter> entry(raw);
  addAttributes(in, raw);
  setRecordKind(in, raw, kind);

  const bool refused = qfuzz::recordRefused(raw);
  checkBuilders(raw, refused);
  checkRecord(raw, refused, qfuzz::CountingAllocator::kUnlimited);
  if (limited) checkRecord(raw, refused, budget);
  return 0;
}
