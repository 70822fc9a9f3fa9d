// bench/gen_dsml.cc - writes a deterministic DSML document of a given size
// for the benchmarks, of one of three kinds:
//   - DSML v1 (the default): inetOrgPerson-like entries with UTF-8 names,
//     multi-valued attributes, long descriptions that fold in LDIF and, in
//     one entry out of twenty, a base64 photo of a few KiB;
//   - a DSML v2 batchResponse (--v2-response): one searchResponse whose
//     searchResultEntry elements hold the same entries as the v1 document of
//     the same SEED, in the same order, then a searchResultDone;
//   - a DSML v2 batchRequest (--v2-request): half addRequest (the same kind
//     of entries), 30% modifyRequest (two to four replace, add and delete
//     modifications, some with base64 values), 10% modDNRequest (renames
//     and moves, with and without deleteoldrdn) and 10% delRequest, each
//     naming an entry the batch added before and has not deleted.
//
//   gen_dsml SIZE [SEED] [--v2-request|--v2-response] > doc.xml
//       SIZE in bytes, with an optional K, M or G suffix; SEED defaults to 1
//
// The same kind, SIZE and SEED always give the same bytes. The document
// stops at the first entry (or operation) boundary at or after SIZE.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

// splitmix64: small, fast and the same on every platform.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t next() {
    uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
  }
  uint32_t below(uint32_t n) { return static_cast<uint32_t>(next() % n); }
  template <std::size_t N>
  const char *pick(const char *const (&list)[N]) {
    return list[below(N)];
  }

 private:
  uint64_t state_;
};

constexpr const char *kGivenNames[] = {
    "Ann",   "Bob",    "Chloé", "Dmitri", "Émile", "Fatima",  "Günther", "Hiroshi",
    "Inés",  "Jürgen", "Kaito", "Léa",    "Marta", "Nikolaj", "Olga",    "Pedro",
    "Quinn", "Renée",  "Søren", "Tomás",  "Ulla",  "Václav",  "Wei",     "Xiadani",
    "Yusuf", "Zoë",    "李",    "Σοφία",  "Анна",  "محمد",    "John",    "Mary"};
constexpr const char *kSurnames[] = {
    "Lee",     "Smith",     "Müller",   "García", "Dubois", "Rossi",  "Nowak",   "Hansen",
    "Yamada",  "Kowalczyk", "Ødegård",  "Brontë", "Çelik",  "Nguyễn", "Ivanova", "Papadopoulos",
    "O'Brien", "Jones",     "Schröder", "Åberg",  "Wang",   "Kim",    "Silva",   "Novák"};
constexpr const char *kTitles[] = {"Engineer", "Senior Engineer", "Manager",   "Director",
                                   "Analyst",  "Consultant",      "Architect", "Technician"};
constexpr const char *kDepartments[] = {"Sales",   "Research", "Operations", "Finance",
                                        "Support", "Legal",    "Marketing"};
constexpr const char *kWords[] = {"directory", "service", "account", "project", "team",
                                  "member",    "remote",  "office",  "region",  "contract",
                                  "access",    "granted", "since",   "review",  "pending"};
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kBaseDn = ",dc=example,dc=com";

// ---- Markup ------------------------------------------------------------------------
// One entry is written the same way whatever the document: only the markup
// around its attributes and values changes, so that every kind carries the
// same content and the converters' figures on them can be compared.
struct Markup {
  std::string_view entry_open;  // followed by the DN and entry_dn_close
  std::string_view entry_dn_close;
  std::string_view entry_close;
  std::string_view object_classes;  // the whole line
  std::string_view attr_open;       // followed by the name and attr_name_close
  std::string_view attr_name_close;
  std::string_view attr_close;
  std::string_view value_open;
  std::string_view base64_value_open;
  std::string_view value_close;
};

constexpr Markup kV1Entry = {
    "<dsml:entry dn=\"",
    "\">\n",
    "</dsml:entry>\n",
    "  <dsml:objectclass><dsml:oc-value>top</dsml:oc-value>"
    "<dsml:oc-value>person</dsml:oc-value>"
    "<dsml:oc-value>organizationalPerson</dsml:oc-value>"
    "<dsml:oc-value>inetOrgPerson</dsml:oc-value></dsml:objectclass>\n",
    "  <dsml:attr name=\"",
    "\">",
    "</dsml:attr>\n",
    "<dsml:value>",
    "<dsml:value encoding=\"base64\">",
    "</dsml:value>",
};

// DSML v2 has no objectclass element: the classes are an attribute like
// any other, and a value's kind is its xsi:type.
constexpr Markup kV2SearchResultEntry = {
    "<searchResultEntry dn=\"",
    "\">\n",
    "</searchResultEntry>\n",
    "  <attr name=\"objectClass\"><value>top</value>"
    "<value>person</value>"
    "<value>organizationalPerson</value>"
    "<value>inetOrgPerson</value></attr>\n",
    "  <attr name=\"",
    "\">",
    "</attr>\n",
    "<value>",
    "<value xsi:type=\"xsd:base64Binary\">",
    "</value>",
};

// An addRequest is a searchResultEntry under another name.
constexpr Markup withEntryElement(Markup m, std::string_view open, std::string_view close) {
  m.entry_open = open;
  m.entry_close = close;
  return m;
}
constexpr Markup kV2AddRequest =
    withEntryElement(kV2SearchResultEntry, "<addRequest dn=\"", "</addRequest>\n");

// Text goes into element content and attribute values: escape what XML needs.
void appendEscaped(std::string &out, std::string_view text) {
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&apos;"; break;
      default: out += c;
    }
  }
}

void appendValue(std::string &out, const Markup &m, std::string_view value) {
  out += m.value_open;
  appendEscaped(out, value);
  out += m.value_close;
}

void appendAttr(std::string &out, const Markup &m, std::string_view name, std::string_view value) {
  out += m.attr_open;
  out += name;
  out += m.attr_name_close;
  appendValue(out, m, value);
  out += m.attr_close;
}

// `digits` random base64 digits, folded at 76 columns as exports usually
// are. A multiple of four digits decodes without padding.
void appendBase64Digits(std::string &out, Random &rng, uint32_t digits) {
  for (uint32_t i = 0; i < digits; ++i) {
    out += kAlphabet[rng.below(64)];
    if (i % 76 == 75) out += '\n';
  }
}

constexpr uint32_t base64Digits(uint32_t bytes) { return (bytes + 2) / 3 * 4; }

// `bytes` in base64, padded, on one line.
void appendBase64Of(std::string &out, std::string_view bytes) {
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t n = bytes.size() - i < 3 ? bytes.size() - i : 3;
    uint32_t group = 0;
    for (std::size_t j = 0; j < 3; ++j) {
      group = group << 8 | (j < n ? static_cast<unsigned char>(bytes[i + j]) : 0u);
    }
    for (std::size_t j = 0; j < 4; ++j) {
      out += j <= n ? kAlphabet[(group >> (18 - 6 * j)) & 63] : '=';
    }
  }
}

// A photo-like base64 value of 2 to 8 KiB (the size drawn by the caller),
// on lines of its own.
void appendPhotoValue(std::string &out, const Markup &m, Random &rng, uint32_t bytes) {
  out += m.base64_value_open;
  out += '\n';
  appendBase64Digits(out, rng, base64Digits(bytes));
  out += '\n';
  out += m.value_close;
}

uint32_t photoBytes(Random &rng) { return 2048 + rng.below(6144); }

void appendPhoto(std::string &out, const Markup &m, Random &rng, uint32_t bytes) {
  out += m.attr_open;
  out += "jpegPhoto";
  out += m.attr_name_close;
  appendPhotoValue(out, m, rng, bytes);
  out += m.attr_close;
}

std::string uidOf(uint64_t n) {
  char uid[32];
  std::snprintf(uid, sizeof uid, "user%07llu", static_cast<unsigned long long>(n));
  return uid;
}

std::string phoneNumber(Random &rng) {
  char phone[32];
  std::snprintf(phone, sizeof phone, "+1 555 %03u %04u", rng.below(1000), rng.below(10000));
  return phone;
}

void appendWords(std::string &text, Random &rng, uint32_t words) {
  for (uint32_t i = 0; i < words; ++i) {
    text += ' ';
    text += rng.pick(kWords);
  }
}

// Writes entry `n` and returns the index of its department in
// kDepartments. The random numbers are drawn in the same order for every
// markup: the v1 documents' bytes must not change.
uint32_t appendEntry(std::string &out, const Markup &m, Random &rng, uint64_t n) {
  const std::string uid = uidOf(n);
  std::string given = rng.pick(kGivenNames);
  std::string surname = rng.pick(kSurnames);
  std::string cn = given + " " + surname;
  const uint32_t department_index = rng.below(std::size(kDepartments));
  std::string department = kDepartments[department_index];

  out += m.entry_open;
  out += "uid=";
  out += uid;
  out += ",ou=";
  out += department;
  out += kBaseDn;
  out += m.entry_dn_close;
  out += m.object_classes;
  appendAttr(out, m, "uid", uid);
  appendAttr(out, m, "cn", cn);
  appendAttr(out, m, "sn", surname);
  appendAttr(out, m, "givenName", given);
  appendAttr(out, m, "title", rng.pick(kTitles));
  appendAttr(out, m, "ou", department);
  out += m.attr_open;
  out += "mail";
  out += m.attr_name_close;
  uint32_t mails = 1 + rng.below(3);
  for (uint32_t i = 0; i < mails; ++i) {
    appendValue(
        out, m,
        uid + (i == 0 ? "@example.com" : (i == 1 ? "@mail.example.com" : "@alt.example.org")));
  }
  out += m.attr_close;
  out += m.attr_open;
  out += "telephoneNumber";
  out += m.attr_name_close;
  uint32_t phones = 1 + rng.below(2);
  for (uint32_t i = 0; i < phones; ++i) appendValue(out, m, phoneNumber(rng));
  out += m.attr_close;
  std::string description = cn + " works in " + department + ":";
  appendWords(description, rng, 8 + rng.below(20));
  appendAttr(out, m, "description", description);
  if (rng.below(20) == 0) appendPhoto(out, m, rng, photoBytes(rng));
  out += m.entry_close;
  return department_index;
}

// ---- Operations of a batchRequest --------------------------------------------------
// An entry the batch has added and not deleted: its uid number and its
// department, which together make its DN.
struct Live {
  uint64_t n;
  uint32_t department;
};

void appendDn(std::string &out, const Live &e) {
  out += "uid=";
  out += uidOf(e.n);
  out += ",ou=";
  out += kDepartments[e.department];
  out += kBaseDn;
}

// The modifications a modifyRequest draws from, each as often as its
// weight out of the weights' sum.
enum class Modification : uint8_t {
  kReplaceTitle,
  kAddMail,
  kDeletePhone,  // half of them the whole attribute, without values
  kReplaceDescription,
  kReplacePhones,
  kReplacePassword,  // a hashed password, given in base64
  kReplacePhoto,     // a base64 photo of 2 to 8 KiB
};
struct ModificationWeight {
  Modification kind;
  uint32_t weight;
};
constexpr ModificationWeight kModificationWeights[] = {
    {Modification::kReplaceTitle, 10}, {Modification::kAddMail, 6},
    {Modification::kDeletePhone, 6},   {Modification::kReplaceDescription, 6},
    {Modification::kReplacePhones, 6}, {Modification::kReplacePassword, 5},
    {Modification::kReplacePhoto, 1},
};
constexpr uint32_t totalWeight() {
  uint32_t total = 0;
  for (const ModificationWeight &w : kModificationWeights) total += w.weight;
  return total;
}

Modification pickModification(Random &rng) {
  uint32_t r = rng.below(totalWeight());
  for (const ModificationWeight &w : kModificationWeights) {
    if (r < w.weight) return w.kind;
    r -= w.weight;
  }
  return kModificationWeights[0].kind;
}

constexpr Markup kV2 = kV2SearchResultEntry;  // values inside modifications

void openModification(std::string &out, std::string_view name, std::string_view operation) {
  out += "  <modification name=\"";
  out += name;
  out += "\" operation=\"";
  out += operation;
  out += "\">";
}

constexpr std::string_view kModificationClose = "</modification>\n";

void appendModification(std::string &out, Random &rng, const Live &e) {
  switch (pickModification(rng)) {
    case Modification::kReplaceTitle:
      openModification(out, "title", "replace");
      appendValue(out, kV2, rng.pick(kTitles));
      break;
    case Modification::kAddMail:
      openModification(out, "mail", "add");
      appendValue(out, kV2, uidOf(e.n) + "@alt.example.org");
      break;
    case Modification::kDeletePhone:
      if (rng.below(2) == 0) {
        out += "  <modification name=\"telephoneNumber\" operation=\"delete\"/>\n";
        return;
      }
      openModification(out, "telephoneNumber", "delete");
      appendValue(out, kV2, phoneNumber(rng));
      break;
    case Modification::kReplaceDescription: {
      openModification(out, "description", "replace");
      std::string description = "Moved to ";
      description += rng.pick(kDepartments);
      description += ':';
      appendWords(description, rng, 8 + rng.below(20));
      appendValue(out, kV2, description);
      break;
    }
    case Modification::kReplacePhones: {
      openModification(out, "telephoneNumber", "replace");
      const uint32_t phones = 1 + rng.below(2);
      for (uint32_t i = 0; i < phones; ++i) appendValue(out, kV2, phoneNumber(rng));
      break;
    }
    case Modification::kReplacePassword: {
      // A salted hash as directories store it, which exports give in base64.
      std::string password = "{SSHA}";
      for (uint32_t i = 0; i < 32; ++i) password += kAlphabet[rng.below(64)];
      openModification(out, "userPassword", "replace");
      out += kV2.base64_value_open;
      appendBase64Of(out, password);
      out += kV2.value_close;
      break;
    }
    case Modification::kReplacePhoto:
      openModification(out, "jpegPhoto", "replace");
      appendPhotoValue(out, kV2, rng, photoBytes(rng));
      break;
  }
  out += kModificationClose;
}

void appendModify(std::string &out, Random &rng, const Live &e) {
  out += "<modifyRequest dn=\"";
  appendDn(out, e);
  out += "\">\n";
  const uint32_t modifications = 2 + rng.below(3);
  for (uint32_t i = 0; i < modifications; ++i) appendModification(out, rng, e);
  out += "</modifyRequest>\n";
}

void appendDelete(std::string &out, const Live &e) {
  out += "<delRequest dn=\"";
  appendDn(out, e);
  out += "\"/>\n";
}

// deleteoldrdn as tools write it: mostly left to its default (true),
// otherwise spelt either way.
constexpr std::string_view kDeleteOldRdn[] = {"",
                                              "",
                                              " deleteoldrdn=\"true\"",
                                              " deleteoldrdn=\"false\"",
                                              " deleteoldrdn=\"1\"",
                                              " deleteoldrdn=\"0\""};

// Half the modDNRequests move the entry to another department (newSuperior,
// the same RDN), half rename it in place to the next new uid. Updates `e`.
void appendModDn(std::string &out, Random &rng, Live &e, uint64_t &next_n) {
  out += "<modDNRequest dn=\"";
  appendDn(out, e);
  out += "\" newrdn=\"uid=";
  const bool move = rng.below(2) == 0;
  if (!move) e.n = next_n++;
  out += uidOf(e.n);
  out += '"';
  out += kDeleteOldRdn[rng.below(std::size(kDeleteOldRdn))];
  if (move) {
    e.department = (e.department + 1 + rng.below(std::size(kDepartments) - 1)) %
                   static_cast<uint32_t>(std::size(kDepartments));
    out += " newSuperior=\"ou=";
    out += kDepartments[e.department];
    out += kBaseDn;
    out += '"';
  }
  out += "/>\n";
}

// The entries a batchRequest has added and not yet deleted, and the next
// uid number to hand out.
class Batch {
 public:
  void appendOperation(std::string &out, Random &rng) {
    // Out of ten: five adds, three modifies, one modDN, one delete. An empty
    // batch can only add.
    const uint32_t r = live_.empty() ? 0 : rng.below(10);
    if (r < 5) {
      const uint64_t n = next_n_++;
      live_.push_back({n, appendEntry(out, kV2AddRequest, rng, n)});
      return;
    }
    const std::size_t target = rng.below(static_cast<uint32_t>(live_.size()));
    if (r < 8) {
      appendModify(out, rng, live_[target]);
    } else if (r < 9) {
      appendModDn(out, rng, live_[target], next_n_);
    } else {
      appendDelete(out, live_[target]);
      live_[target] = live_.back();
      live_.pop_back();
    }
  }

 private:
  std::vector<Live> live_;
  uint64_t next_n_ = 1;
};

// ---- Documents ---------------------------------------------------------------------
enum class Kind : uint8_t { kV1, kV2Request, kV2Response };

struct DocumentKind {
  Kind kind;
  std::string_view option;  // empty for the default
  std::string_view head;
  std::string_view tail;
};

#define QUILLOMAT_BENCH_V2_NAMESPACES               \
  " xmlns=\"urn:oasis:names:tc:DSML:2:0:core\""     \
  " xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\"" \
  " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\""

constexpr DocumentKind kDocumentKinds[] = {
    {Kind::kV1, "",
     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
     "<dsml:dsml xmlns:dsml=\"http://www.dsml.org/DSML\">\n"
     "<dsml:directory-entries>\n",
     "</dsml:directory-entries>\n</dsml:dsml>\n"},
    {Kind::kV2Request, "--v2-request",
     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
     "<batchRequest" QUILLOMAT_BENCH_V2_NAMESPACES ">\n",
     "</batchRequest>\n"},
    {Kind::kV2Response, "--v2-response",
     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
     "<batchResponse" QUILLOMAT_BENCH_V2_NAMESPACES ">\n"
     "<searchResponse>\n",
     "<searchResultDone><resultCode code=\"0\"/></searchResultDone>\n"
     "</searchResponse>\n</batchResponse>\n"},
};
#undef QUILLOMAT_BENCH_V2_NAMESPACES

[[nodiscard]] bool parseSize(const char *text, uint64_t *size) {
  char *end = nullptr;
  unsigned long long v = std::strtoull(text, &end, 10);
  if (end == text) return false;
  switch (*end) {
    case 'K':
    case 'k':
      v <<= 10;
      ++end;
      break;
    case 'M':
    case 'm':
      v <<= 20;
      ++end;
      break;
    case 'G':
    case 'g':
      v <<= 30;
      ++end;
      break;
    default: break;
  }
  if (*end != '\0') return false;
  *size = v;
  return true;
}

[[nodiscard]] bool parseSeed(const char *text, uint64_t *seed) {
  char *end = nullptr;
  *seed = std::strtoull(text, &end, 10);
  return end != text && *end == '\0';
}

struct Options {
  const DocumentKind *kind = &kDocumentKinds[0];
  uint64_t size = 0;
  uint64_t seed = 1;
};

[[nodiscard]] bool parseOptions(int argc, char **argv, Options *options) {
  int positional = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg.starts_with("--")) {
      const DocumentKind *found = nullptr;
      for (const DocumentKind &k : kDocumentKinds) {
        if (!k.option.empty() && k.option == arg) found = &k;
      }
      if (found == nullptr) return false;
      options->kind = found;
    } else if (positional == 0) {
      if (!parseSize(argv[i], &options->size)) return false;
      ++positional;
    } else if (positional == 1) {
      if (!parseSeed(argv[i], &options->seed)) return false;
      ++positional;
    } else {
      return false;
    }
  }
  return positional >= 1;
}

}  // namespace

int main(int argc, char **argv) {
  Options options;
  if (!parseOptions(argc, argv, &options)) {
    std::fprintf(stderr, "usage: gen_dsml SIZE[K|M|G] [SEED] [--v2-request|--v2-response]\n");
    return 2;
  }
  Random rng(options.seed);
  Batch batch;
  std::string out(options.kind->head);
  uint64_t written = 0;
  for (uint64_t n = 1; written + out.size() < options.size; ++n) {
    switch (options.kind->kind) {
      case Kind::kV1: appendEntry(out, kV1Entry, rng, n); break;
      case Kind::kV2Response: appendEntry(out, kV2SearchResultEntry, rng, n); break;
      case Kind::kV2Request: batch.appendOperation(out, rng); break;
    }
    if (out.size() >= (1u << 20)) {
      written += std::fwrite(out.data(), 1, out.size(), stdout);
      out.clear();
    }
  }
  out += options.kind->tail;
  std::fwrite(out.data(), 1, out.size(), stdout);
  return std::fflush(stdout) == 0 ? 0 : 1;
}
