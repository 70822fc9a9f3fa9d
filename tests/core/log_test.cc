// Tracing and the log file: the trace decision, the hook, the log callback,
// the log file's name, time stamp, re-creation and absence.
#include <gtest/gtest.h>

#include <cctype>
#include <sstream>

#include "core/context_internal.h"
#include "core/output.h"
#include "tests/support/test_support.h"

namespace {

std::vector<std::string> g_logged;  // "level text"

int captureLog(gsluctx *, void *, uint32_t level, const char *text) {
  g_logged.push_back(std::to_string(level) + " " + text);
  return 0;
}

// A table with only the log callback: memory ignores it (incomplete), the
// log uses it.
const gsluMemCallbacks kLogOnly = {nullptr, nullptr, nullptr, nullptr, captureLog};

std::vector<std::string> g_hooked;  // "level format count"

void captureHook(uint32_t level, const char *format, const gsluArg *, uint32_t count) {
  g_hooked.push_back(std::to_string(level) + " " + format + std::to_string(count));
}

// Fresh context, initial trace switches, and a home with ldap/log.
class LogTest : public qtest::FreshContextTest {
 protected:
  void SetUp() override {
    ldap_debug = GSLUTC_LEVEL_ERROR;
    debug_flag = 0;
    FreshContextTest::SetUp();
    env_.set("VESTRA_HOME", home_.path());
    std::filesystem::create_directories(home_.path() + "/ldap/log");
    g_logged.clear();
    g_hooked.clear();
  }
  void TearDown() override {
    ldap_debug = GSLUTC_LEVEL_ERROR;
    debug_flag = 0;
    FreshContextTest::TearDown();
  }
  std::string log() const { return qtest::readFile(logPath()); }

  std::string logPath() const {
    return home_.path() + "/ldap/log/qdrldapd00s" + std::to_string(getpid()) + ".log";
  }

  qtest::TempDir home_;
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
  const std::string level = std::to_string(c.level);
  const std::vector<std::string> expected = {level + " line 7\n", level + " direct\n"};
  EXPECT_EQ(g_logged, c.wanted ? expected : std::vector<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(
    Switches, DecisionTest,
    ::testing::Values(DecisionCase{2, 0, 0x4000, true}, DecisionCase{0x4000, 0, 0x7fffffff, true},
                      DecisionCase{0x4001, 0, 1, false}, DecisionCase{0x4001, 1, 1, true},
                      DecisionCase{1, 1, 2, false}, DecisionCase{0, 1, 0x4000, false},
                      DecisionCase{0x4000, 0, 0x4001, false},
                      DecisionCase{0x4000, 1, 0x4001, true}));

TEST_F(LogTest, HookReceivesEveryLineInsteadOfLog) {
  ASSERT_EQ(gslutsSetTraceHook(ctx_, captureHook), GSLUF_OK);
  const int32_t n = 3;
  EXPECT_EQ(gslutcTraceWithCtx(ctx_, 0x4000, "error %d\n", GSLUF_ARG_INT32_PTR, &n, 0), 0u);
  EXPECT_EQ(gslu::trace(ctx_, 1, "detail %s\n", "x"), 0u);  // not wanted, still hooked
  EXPECT_EQ(g_hooked, (std::vector<std::string>{"16384 error %d\n1", "1 detail %s\n1"}));
  EXPECT_FALSE(std::filesystem::exists(logPath()));
  ASSERT_EQ(gslutsSetTraceHook(ctx_, nullptr), GSLUF_OK);
  EXPECT_EQ(gslu::trace(ctx_, 0x4000, "%s\n", "logged"), 0u);
  EXPECT_EQ(g_hooked.size(), 2u);
  EXPECT_TRUE(std::filesystem::exists(logPath()));
}

// ---- The log file ----------------------------------------------------------------------

TEST_F(LogTest, ErrorLineCreatesTimeStampedLogFile) {
  const int32_t n = 7;
  EXPECT_EQ(
      gslutcTrace(0x4000, "error %d in %s\n", GSLUF_ARG_INT32_PTR, &n, GSLUF_ARG_STRING, "o=ex", 0),
      0u);
  EXPECT_EQ(gslu::trace(ctx_, 1, "%s\n", "not wanted"), 0u);
  EXPECT_EQ(gslufdDebug(ctx_, GSLUF_DEBUG_LOG, "value=%s\n", GSLUF_ARG_STRING, nullptr, 0), 0);
  EXPECT_EQ(gsluffFLog(ctx_, 0x4000, "100% done %d\n"), 0);  // text, not a format
  // Every line: a local time, " * " and the text; nothing else.
  constexpr char kShape[] = "dddd/dd/dd:dd:dd:dd";
  std::istringstream lines(log());
  std::string texts;
  for (std::string line; std::getline(lines, line);) {
    ASSERT_GE(line.size(), sizeof kShape - 1) << line;
    for (std::size_t i = 0; i + 1 < sizeof kShape; ++i) {
      EXPECT_TRUE(kShape[i] == 'd' ? std::isdigit(static_cast<unsigned char>(line[i])) != 0
                                   : line[i] == kShape[i])
          << line;
    }
    texts += line.substr(sizeof kShape - 1) + "\n";
  }
  EXPECT_EQ(texts, " * error 7 in o=ex\n * value=<null arg>\n * 100% done %d\n");
}

TEST_F(LogTest, ExistingLogFileIsAppendedToAndADeletedOneRecreated) {
  std::ofstream(logPath()) << "earlier\n";
  EXPECT_EQ(gslu::trace(ctx_, 0x4000, "%s\n", "first"), 0u);
  EXPECT_EQ(log().rfind("earlier\n", 0), 0u);
  EXPECT_NE(log().find(" * first\n"), std::string::npos);
  ASSERT_TRUE(std::filesystem::remove(logPath()));
  EXPECT_EQ(gslu::trace(ctx_, 0x4000, "%s\n", "second"), 0u);
  EXPECT_EQ(log().find("first"), std::string::npos);
  EXPECT_NE(log().find(" * second\n"), std::string::npos);
}

TEST_F(LogTest, UnsetHomeDropsLine) {
  env_.set("VESTRA_HOME", std::nullopt);
  EXPECT_EQ(gslu::trace(ctx_, 0x4000, "%s\n", "dropped"),
            static_cast<uint32_t>(GSLUF_WRITE_FAILED));
  EXPECT_TRUE(std::filesystem::is_empty(home_.path() + "/ldap/log"));
}

TEST_F(LogTest, LongTraceLineIsCutAtBufferSize) {
  ctx_->mem_table = &kLogOnly;
  const std::string text(2000, 'x');
  EXPECT_EQ(gslu::trace(ctx_, 0x4000, "%s", text.c_str()), 0u);
  ctx_->mem_table = nullptr;
  EXPECT_EQ(g_logged, std::vector<std::string>{"16384 " + std::string(1023, 'x')});
}

// Rows: component, instance, the file's name ("<pid>" for the process
// id). Component 16's name has a conversion without its argument, so it
// deliberately gets no file at all.
TEST_F(LogTest, ComponentChoosesFileName) {
  const std::string pid = std::to_string(getpid());
  const struct {
    uint8_t component;
    uint16_t instance;
    std::string name;
  } cases[] = {{0, 3, "qdrldapd03s" + pid + ".log"},
               {7, 2, "pzksrv02.log"},
               {8, 1, "pzksrv01s" + pid + ".log"},
               {15, 0, "masspurge.log"},
               {16, 0, ""},
               {200, 0, "qdrldapd00s" + pid + ".log"}};
  const std::string dir = home_.path() + "/ldap/log/";
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << "component " << int{c.component});
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    ctx_->component_code = c.component;
    ctx_->instance_number = c.instance;
    EXPECT_EQ(gslufgGetLogfile(ctx_), c.name.empty() ? GSLUF_WRITE_FAILED : GSLUF_OK);
    EXPECT_TRUE(c.name.empty() ? std::filesystem::is_empty(dir)
                               : std::filesystem::exists(dir + c.name));
  }
}

}  // namespace
