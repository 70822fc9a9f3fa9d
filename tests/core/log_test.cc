// Tracing and the log file: the trace decision, the hook, the log callback,
// the log file's name, time stamp, re-creation and absence.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "core/context_internal.h"
#include "core/output.h"
#include "tests/support/test_support.h"

namespace {

struct Logged {
  uint32_t level;
  std::string text;
};
std::vector<Logged> g_logged;

int captureLog(gsluctx *, void *, uint32_t level, const char *text) {
  g_logged.push_back({level, text});
  return 0;
}

// A table with only the log callback: memory ignores it (incomplete), the
// log uses it.
const gsluMemCallbacks kLogOnly = {nullptr, nullptr, nullptr, nullptr, captureLog};

struct Hooked {
  uint32_t level;
  std::string format;
  uint32_t count;
};
std::vector<Hooked> g_hooked;

void captureHook(uint32_t level, const char *format, const gsluArg *, uint32_t count) {
  g_hooked.push_back({level, format, count});
}

std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// Fresh context, initial trace switches, and a home with ldap/log.
class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    qtest::dropContext();
    ldap_debug = GSLUTC_LEVEL_ERROR;
    debug_flag = 0;
    env_.set("VSX_LDAP_MESGDIR", QUILLOMAT_MESGDIR);
    env_.set("LC_ALL", std::nullopt);
    env_.set("LC_CTYPE", std::nullopt);
    env_.set("LANG", std::nullopt);
    env_.set("VESTRA_HOME", home_.path());
    std::filesystem::create_directories(home_.path() + "/ldap/log");
    ctx_ = gsluizgcGetContext();
    ASSERT_NE(ctx_, nullptr);
    g_logged.clear();
    g_hooked.clear();
  }
  void TearDown() override {
    ldap_debug = GSLUTC_LEVEL_ERROR;
    debug_flag = 0;
    qtest::dropContext();
  }

  std::string logPath() const {
    return home_.path() + "/ldap/log/qdrldapd00s" + std::to_string(getpid()) + ".log";
  }

  qtest::ScopedEnv env_;
  qtest::TempDir home_;
  gsluctx *ctx_ = nullptr;
};

// ---- The trace decision --------------------------------------------------------------

struct DecisionCase {
  uint32_t mask;
  int32_t flag;
  uint32_t level;
  bool wanted;
};

void PrintTo(const DecisionCase &c, std::ostream *os) {
  *os << "mask " << c.mask << " flag " << c.flag << " level " << c.level;
}

class DecisionTest : public LogTest, public ::testing::WithParamInterface<DecisionCase> {};

TEST_P(DecisionTest, DecidesWhetherLineIsWanted) {
  const DecisionCase &c = GetParam();
  ctx_->mem_table = &kLogOnly;
  ldap_debug = c.mask;
  debug_flag = c.flag;
  const int32_t n = 7;
  EXPECT_EQ(gslutcTraceWithCtx(ctx_, c.level, "line %d\n", GSLUF_ARG_INT32_PTR, &n, 0), 0u);
  EXPECT_EQ(gsluffFLog(ctx_, c.level, "direct\n"), 0);
  ctx_->mem_table = nullptr;
  if (!c.wanted) {
    EXPECT_TRUE(g_logged.empty());
    return;
  }
  ASSERT_EQ(g_logged.size(), 2u);
  EXPECT_EQ(g_logged[0].text, "line 7\n");
  EXPECT_EQ(g_logged[0].level, c.level);
  EXPECT_EQ(g_logged[1].text, "direct\n");
}

INSTANTIATE_TEST_SUITE_P(Switches, DecisionTest,
                         ::testing::Values(DecisionCase{0x4000, 0, 0x4000, true},
                                           DecisionCase{0x4000, 0, 0x7fffffff, true},
                                           DecisionCase{0x4000, 0, 1, false},
                                           DecisionCase{0x4001, 0, 1, false},
                                           DecisionCase{0x4001, 1, 1, true},
                                           DecisionCase{1, 1, 2, false},
                                           DecisionCase{2, 0, 0x4000, true},
                                           DecisionCase{0, 1, 0x4000, false},
                                           DecisionCase{0, 0, 0x7fffffff, false},
                                           DecisionCase{0x4000, 0, 0x4001, false},
                                           DecisionCase{0x4000, 1, 0x4001, true}));

TEST_F(LogTest, HookReceivesEveryLineInsteadOfLog) {
  ASSERT_EQ(gslutsSetTraceHook(ctx_, captureHook), GSLUF_OK);
  EXPECT_EQ(ctx_->trace_hook_on, 1u);
  const int32_t n = 3;
  EXPECT_EQ(gslutcTraceWithCtx(ctx_, 0x4000, "error %d\n", GSLUF_ARG_INT32_PTR, &n, 0), 0u);
  EXPECT_EQ(gslu::trace(ctx_, 1, "detail %s\n", "x"), 0u);  // not wanted, still hooked
  ASSERT_EQ(g_hooked.size(), 2u);
  EXPECT_EQ(g_hooked[0].level, 0x4000u);
  EXPECT_EQ(g_hooked[0].format, "error %d\n");
  EXPECT_EQ(g_hooked[0].count, 1u);
  EXPECT_EQ(g_hooked[1].level, 1u);
  EXPECT_FALSE(std::filesystem::exists(logPath()));
  ASSERT_EQ(gslutsSetTraceHook(ctx_, nullptr), GSLUF_OK);
  EXPECT_EQ(ctx_->trace_hook_on, 0u);
  EXPECT_EQ(gslu::trace(ctx_, 0x4000, "%s\n", "logged"), 0u);
  EXPECT_EQ(g_hooked.size(), 2u);
  EXPECT_TRUE(std::filesystem::exists(logPath()));
}

// ---- The log file ----------------------------------------------------------------------

// Whether s is a local time as "YYYY/MM/DD:HH:MM:SS".
bool isLocalTime(const std::string &s) {
  constexpr char kShape[] = "dddd/dd/dd:dd:dd:dd";
  if (s.size() != sizeof kShape - 1) return false;
  for (std::size_t i = 0; i < s.size(); ++i) {
    const bool digit = s[i] >= '0' && s[i] <= '9';
    if (kShape[i] == 'd' ? !digit : s[i] != kShape[i]) return false;
  }
  return true;
}

constexpr std::size_t kStampSize = 19;

TEST_F(LogTest, ErrorLineCreatesTimeStampedLogFile) {
  const int32_t n = 7;
  EXPECT_EQ(gslutcTrace(0x4000, "error %d in %s\n", GSLUF_ARG_INT32_PTR, &n, GSLUF_ARG_STRING, "o=ex", 0), 0u);
  EXPECT_EQ(gslu::trace(ctx_, 1, "%s\n", "not wanted"), 0u);
  const std::string log = readFile(logPath());
  ASSERT_GT(log.size(), kStampSize) << log;
  EXPECT_TRUE(isLocalTime(log.substr(0, kStampSize))) << log;
  EXPECT_EQ(log.substr(kStampSize), " * error 7 in o=ex\n");
  EXPECT_NE(ctx_->log_stamp_format, nullptr);
}

TEST_F(LogTest, NullStringArgumentLogsPlaceholder) {
  EXPECT_EQ(gslufdDebug(ctx_, GSLUF_DEBUG_LOG, "value=%s\n", GSLUF_ARG_STRING, nullptr, 0), 0);
  const std::string log = readFile(logPath());
  EXPECT_NE(log.find(" * value=<null arg>\n"), std::string::npos) << log;
}

TEST_F(LogTest, PercentInTracedTextIsWrittenAsItIs) {
  EXPECT_EQ(gsluffFLog(ctx_, 0x4000, "100% done %d\n"), 0);
  EXPECT_NE(readFile(logPath()).find(" * 100% done %d\n"), std::string::npos);
}

TEST_F(LogTest, DeletedLogFileIsRecreated) {
  EXPECT_EQ(gslu::trace(ctx_, 0x4000, "%s\n", "first"), 0u);
  ASSERT_TRUE(std::filesystem::remove(logPath()));
  EXPECT_EQ(gslu::trace(ctx_, 0x4000, "%s\n", "second"), 0u);
  const std::string log = readFile(logPath());
  EXPECT_EQ(log.find("first"), std::string::npos);
  EXPECT_NE(log.find(" * second\n"), std::string::npos);
}

TEST_F(LogTest, ExistingLogFileIsAppendedTo) {
  std::ofstream(logPath()) << "earlier\n";
  EXPECT_EQ(gslu::trace(ctx_, 0x4000, "%s\n", "later"), 0u);
  const std::string log = readFile(logPath());
  EXPECT_EQ(log.rfind("earlier\n", 0), 0u);
  EXPECT_NE(log.find(" * later\n"), std::string::npos);
}

TEST_F(LogTest, UnsetHomeDropsLine) {
  env_.set("VESTRA_HOME", std::nullopt);
  EXPECT_EQ(gslu::trace(ctx_, 0x4000, "%s\n", "dropped"), static_cast<uint32_t>(GSLUF_WRITE_FAILED));
  EXPECT_EQ(ctx_->log_file, nullptr);
  EXPECT_TRUE(std::filesystem::is_empty(home_.path() + "/ldap/log"));
}

TEST_F(LogTest, LongTraceLineIsCutAtBufferSize) {
  ctx_->mem_table = &kLogOnly;
  const std::string text(2000, 'x');
  EXPECT_EQ(gslu::trace(ctx_, 0x4000, "%s", text.c_str()), 0u);
  ctx_->mem_table = nullptr;
  ASSERT_EQ(g_logged.size(), 1u);
  EXPECT_EQ(g_logged[0].text, std::string(1023, 'x'));
}

TEST_F(LogTest, StampFormatFailureAbandonsNewFile) {
  gslu::dateFailNextForTesting();
  EXPECT_EQ(gslufgGetLogfile(ctx_), GSLUF_WRITE_FAILED);
  EXPECT_EQ(ctx_->log_file, nullptr);
  EXPECT_EQ(ctx_->log_stamp_format, nullptr);
  EXPECT_EQ(gslufgGetLogfile(ctx_), GSLUF_OK);
  EXPECT_NE(ctx_->log_file, nullptr);
}

struct NameCase {
  uint8_t component;
  uint16_t instance;
  std::string name;  // "<pid>" stands for the process id; empty: no file
};

void PrintTo(const NameCase &c, std::ostream *os) { *os << "component " << int{c.component}; }

class LogNameTest : public LogTest, public ::testing::WithParamInterface<NameCase> {};

TEST_P(LogNameTest, ComponentChoosesFileName) {
  const NameCase &c = GetParam();
  ctx_->component_code = c.component;
  ctx_->instance_number = c.instance;
  const int status = gslufgGetLogfile(ctx_);
  if (c.name.empty()) {
    EXPECT_EQ(status, GSLUF_WRITE_FAILED);
    EXPECT_TRUE(std::filesystem::is_empty(home_.path() + "/ldap/log"));
    return;
  }
  ASSERT_EQ(status, GSLUF_OK);
  std::string name = c.name;
  if (const auto at = name.find("<pid>"); at != std::string::npos) {
    name.replace(at, 5, std::to_string(getpid()));
  }
  EXPECT_STREQ(static_cast<const char *>(ctx_->log_name), name.c_str());
  EXPECT_TRUE(std::filesystem::exists(home_.path() + "/ldap/log/" + name));
}

INSTANTIATE_TEST_SUITE_P(Table, LogNameTest,
                         ::testing::Values(NameCase{0, 0, "qdrldapd00s<pid>.log"},
                                           NameCase{0, 3, "qdrldapd03s<pid>.log"},
                                           NameCase{4, 5, "qdrctl05.log"},
                                           NameCase{7, 12, "pzksrv12.log"},
                                           NameCase{8, 1, "pzksrv01s<pid>.log"},
                                           NameCase{9, 0, "farsync.log"},
                                           NameCase{11, 0, "massedit.log"},
                                           NameCase{12, 0, "massimport.log"},
                                           NameCase{13, 0, "textdump.log"},
                                           NameCase{14, 0, "indexer.log"},
                                           NameCase{15, 0, "masspurge.log"},
                                           NameCase{16, 0, ""},
                                           NameCase{200, 0, "qdrldapd00s<pid>.log"}));

TEST(LocalTimeTest, FormatAndSmallBuffer) {
  char now[40];
  sgsludqdrLocalTimeString(now, sizeof now);
  EXPECT_TRUE(isLocalTime(now)) << now;
  char small[8] = "junk";
  sgsludqdrLocalTimeString(small, sizeof small);
  EXPECT_STREQ(small, "");
  sgsludqdrLocalTimeString(nullptr, 10);  // nothing happens
  uint32_t pid = 0;
  sgslupgGetProcId(nullptr, &pid);
  EXPECT_EQ(pid, static_cast<uint32_t>(getpid()));
  sgslupgGetProcId(nullptr, nullptr);
}

}  // namespace
