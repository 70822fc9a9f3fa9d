// bench/gen_dsml.cc - writes a deterministic DSML v1 document of a given size
// for the benchmarks: inetOrgPerson-like entries with UTF-8 names,
// multi-valued attributes, long descriptions that fold in LDIF and, in one
// entry out of twenty, a base64 photo of a few KiB.
//
//   gen_dsml SIZE [SEED] > doc.dsml     SIZE in bytes; K, M or G suffixes
//
// The same SIZE and SEED always give the same bytes. The document stops at
// the first entry boundary at or after SIZE.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

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

void appendAttr(std::string &out, std::string_view name, std::string_view value) {
  out += "  <dsml:attr name=\"";
  out += name;
  out += "\"><dsml:value>";
  appendEscaped(out, value);
  out += "</dsml:value></dsml:attr>\n";
}

// A photo-like base64 value of `bytes` random bytes, folded at 76 columns as
// exports usually are.
void appendPhoto(std::string &out, Random &rng, uint32_t bytes) {
  out += "  <dsml:attr name=\"jpegPhoto\"><dsml:value encoding=\"base64\">\n";
  uint32_t digits = (bytes + 2) / 3 * 4;
  for (uint32_t i = 0; i < digits; ++i) {
    out += kAlphabet[rng.below(64)];
    if (i % 76 == 75) out += '\n';
  }
  out += "\n</dsml:value></dsml:attr>\n";
}

void appendEntry(std::string &out, Random &rng, uint64_t n) {
  char uid[32];
  std::snprintf(uid, sizeof uid, "user%07llu", static_cast<unsigned long long>(n));
  std::string given = rng.pick(kGivenNames);
  std::string surname = rng.pick(kSurnames);
  std::string cn = given + " " + surname;
  std::string department = rng.pick(kDepartments);

  out += "<dsml:entry dn=\"uid=";
  out += uid;
  out += ",ou=";
  out += department;
  out += ",dc=example,dc=com\">\n";
  out +=
      "  <dsml:objectclass><dsml:oc-value>top</dsml:oc-value>"
      "<dsml:oc-value>person</dsml:oc-value>"
      "<dsml:oc-value>organizationalPerson</dsml:oc-value>"
      "<dsml:oc-value>inetOrgPerson</dsml:oc-value></dsml:objectclass>\n";
  appendAttr(out, "uid", uid);
  appendAttr(out, "cn", cn);
  appendAttr(out, "sn", surname);
  appendAttr(out, "givenName", given);
  appendAttr(out, "title", rng.pick(kTitles));
  appendAttr(out, "ou", department);
  out += "  <dsml:attr name=\"mail\">";
  uint32_t mails = 1 + rng.below(3);
  for (uint32_t i = 0; i < mails; ++i) {
    out += "<dsml:value>";
    out += uid;
    out += i == 0 ? "@example.com" : (i == 1 ? "@mail.example.com" : "@alt.example.org");
    out += "</dsml:value>";
  }
  out += "</dsml:attr>\n";
  out += "  <dsml:attr name=\"telephoneNumber\">";
  uint32_t phones = 1 + rng.below(2);
  for (uint32_t i = 0; i < phones; ++i) {
    char phone[32];
    std::snprintf(phone, sizeof phone, "+1 555 %03u %04u", rng.below(1000), rng.below(10000));
    out += "<dsml:value>";
    out += phone;
    out += "</dsml:value>";
  }
  out += "</dsml:attr>\n";
  std::string description = cn + " works in " + department + ":";
  uint32_t words = 8 + rng.below(20);
  for (uint32_t i = 0; i < words; ++i) {
    description += ' ';
    description += rng.pick(kWords);
  }
  appendAttr(out, "description", description);
  if (rng.below(20) == 0) appendPhoto(out, rng, 2048 + rng.below(6144));
  out += "</dsml:entry>\n";
}

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

}  // namespace

int main(int argc, char **argv) {
  uint64_t size = 0;
  if (argc < 2 || argc > 3 || !parseSize(argv[1], &size)) {
    std::fprintf(stderr, "usage: gen_dsml SIZE[K|M|G] [SEED]\n");
    return 2;
  }
  uint64_t seed = argc == 3 ? std::strtoull(argv[2], nullptr, 10) : 1;
  Random rng(seed);
  std::string out =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<dsml:dsml xmlns:dsml=\"http://www.dsml.org/DSML\">\n"
      "<dsml:directory-entries>\n";
  uint64_t written = 0;
  for (uint64_t n = 1; written + out.size() < size; ++n) {
    appendEntry(out, rng, n);
    if (out.size() >= (1u << 20)) {
      written += std::fwrite(out.data(), 1, out.size(), stdout);
      out.clear();
    }
  }
  out += "</dsml:directory-entries>\n</dsml:dsml>\n";
  std::fwrite(out.data(), 1, out.size(), stdout);
  return std::fflush(stdout) == 0 ? 0 : 1;
}
