// Start-up, publication and shut-down of the core context.
#include <gtest/gtest.h>

#include <cstring>

#include "core/context_internal.h"
#include "core/messages.h"
#include "core/password_schemes.h"
#include "tests/support/test_allocator.h"
#include "tests/support/test_support.h"
#include "util/hash.h"

namespace {

using qtest::ScopedEnv;
using qtest::TempDir;

// Every test starts without a context and with a plain environment: the
// built catalogue, no VESTRA_HOME and no locale.
class ContextTest : public ::testing::Test {
 protected:
  void SetUp() override {
    qtest::dropContext();
    env_.set("VSX_LDAP_MESGDIR", QUILLOMAT_MESGDIR);
    for (const char *name : {"VESTRA_HOME", "LC_ALL", "LC_CTYPE", "LANG"})
      env_.set(name, std::nullopt);
  }
  void TearDown() override {
    gslu::startupFailStepForTesting(gslu::kStepNone);
    gslu::startupMallocHookForTesting(nullptr);
    qtest::dropContext();
  }
  ScopedEnv env_;
};

TEST_F(ContextTest, IsASingletonUntilShutDownAndANullOutParameterTouchesNothing) {
  EXPECT_EQ(gsluinit(nullptr), GSLU_INIT_NULL_ARG);
  EXPECT_EQ(sgsluugGetContext(), nullptr);
  gsluctx *ctx = gsluizgcGetContext();
  ASSERT_NE(ctx, nullptr);
  gsluctx *again = nullptr;
  EXPECT_EQ(gsluinit(&again), GSLU_INIT_OK);
  EXPECT_EQ(again, ctx);
  EXPECT_EQ(sgsluzGlobalContext, ctx);
  EXPECT_EQ(gslushut(ctx), GSLU_INIT_OK);
  EXPECT_EQ(ctx->life_state, static_cast<uint32_t>(GSLU_LIFE_SHUT_DOWN));
  EXPECT_EQ(sgsluzGlobalContext, nullptr);
  gslushutcb(ctx);  // already shut down: nothing happens
  gslushutcb(nullptr);
  EXPECT_EQ(gslushut(nullptr), GSLU_INIT_NULL_ARG);
  gsluctx *next = gsluizgcGetContext();
  ASSERT_NE(next, nullptr);
  EXPECT_NE(next, ctx);
}

// Where start-up looks for its catalogue: the message directory, else a
// home's ldap/mesg, else beside the executable (the test binary lives in
// build/tests, so ../share/quillomat/mesg is the build's catalogue). Rows
// name subdirectories of one temporary directory; null leaves the variable
// unset, and a null text expects start-up to fail with the diagnostic.
TEST_F(ContextTest, CatalogueIsFoundOrStartUpFailsNamingWhy) {
  TempDir dir;
  dir.write("home/ldap/mesg/ldap.msg", "2101 from home\n9999 unknown\n");
  dir.write("malformed/ldap.msg", "# fine\n2101 fine\nnot a message\n");
  dir.write("mesgdir/ldap.msg", "2101 from mesgdir\n9999 unknown\n");
  std::filesystem::create_directories(dir.path() + "/empty");
  const struct {
    const char *mesgdir, *home, *text, *diagnostic;
  } cases[] = {
      {nullptr, "empty", nullptr, "cannot be opened"},
      {nullptr, nullptr, "", nullptr},
      {"nowhere", nullptr, nullptr, "nowhere"},
      {"nowhere", "home", "from home", nullptr},
      {"mesgdir", "home", "from mesgdir", nullptr},
      {"malformed", nullptr, nullptr, "ldap.msg:3:"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message()
                 << (c.mesgdir ? c.mesgdir : "-") << " " << (c.home ? c.home : "-"));
    qtest::dropContext();
    auto under = [&](const char *sub) {
      return sub ? std::optional<std::string>(dir.path() + "/" + sub) : std::nullopt;
    };
    env_.set("VSX_LDAP_MESGDIR", under(c.mesgdir));
    env_.set("VESTRA_HOME", under(c.home));
    gsluctx *ctx = reinterpret_cast<gsluctx *>(1);
    const int status = gsluinit(&ctx);
    if (c.text == nullptr) {
      EXPECT_EQ(status, GSLU_INIT_SERVICE_FAILED);
      EXPECT_EQ(ctx, nullptr);
      EXPECT_EQ(gsluizgcGetContext(), nullptr);
      EXPECT_NE(std::strstr(gslu::startupDiagnostic(), c.diagnostic), nullptr)
          << gslu::startupDiagnostic();
      continue;
    }
    ASSERT_EQ(status, GSLU_INIT_OK);
    const char *text = nullptr;
    EXPECT_EQ(gslusgmGetMessage(nullptr, 2101, &text, nullptr), GSLUSGM_OK);
    if (*c.text != '\0') {
      EXPECT_STREQ(text, c.text);
    }
  }
}

// A library caller without a catalogue calls again and again: each call
// tries start-up anew and keeps nothing of the failed attempt.
TEST_F(ContextTest, FailedStartUpsKeepNothing) {
  TempDir home;
  env_.set("VSX_LDAP_MESGDIR", std::nullopt);
  env_.set("VESTRA_HOME", home.path());
  gslu::Registry *reg = gslu::registryInit(gslu::RegistryMode::kProcess);
  const std::size_t blocks = gslu::registryPrivateBlockCount(reg);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(gsluizgcGetContext(), nullptr);
  EXPECT_EQ(gslu::registryPrivateBlockCount(reg), blocks);
  env_.set("VESTRA_HOME", std::nullopt);  // the catalogue beside the program again
  EXPECT_NE(gsluizgcGetContext(), nullptr);
}

// The host identifier never asks the name service: /etc/hostid's four
// bytes, else machine-id's first eight hex digits, else the host name.
TEST(HostIdentifier, ComesFromTheFilesInOrder) {
  TempDir dir;
  const uint32_t raw = 0x0a0b0c0d;
  const std::string hostid =
      dir.write("hostid", std::string(reinterpret_cast<const char *>(&raw), 4));
  const std::string short_hostid = dir.write("short", "abc");
  const std::string machine = dir.write("machine-id", "0123abcdEF4567890123456789abcdef\n");
  const std::string bad_machine = dir.write("bad-machine-id", "0123abcx\n");
  const std::string none = dir.path() + "/none";
  EXPECT_EQ(gslu::hostIdentifierFrom(hostid.c_str(), machine.c_str()), raw);
  EXPECT_EQ(gslu::hostIdentifierFrom(short_hostid.c_str(), machine.c_str()), 0x0123abcdu);
  EXPECT_EQ(gslu::hostIdentifierFrom(none.c_str(), machine.c_str()), 0x0123abcdu);
  const uint32_t by_name = gslu::hostIdentifierFrom(none.c_str(), none.c_str());
  EXPECT_EQ(gslu::hostIdentifierFrom(none.c_str(), bad_machine.c_str()), by_name);
  EXPECT_NE(by_name, 0x0123abcdu);
}

TEST_F(ContextTest, MessageDirectoryIsCutAt1023Characters) {
  // A directory whose path is exactly 1023 characters, holding a catalogue;
  // the variable names it followed by more characters that must be dropped
  // (with one of them kept, it would name a directory that does not exist).
  TempDir tmp;
  std::string dir = tmp.path();
  while (dir.size() < 1023) {
    const std::size_t n = std::min<std::size_t>(1022 - dir.size(), 200);
    dir.append(1, '/').append(n, 'd');
  }
  tmp.write(dir.substr(tmp.path().size() + 1) + "/ldap.msg", "2101 cut\n9999 unknown\n");
  env_.set("VSX_LDAP_MESGDIR", dir + "-and-characters-beyond-the-limit");
  ASSERT_NE(gsluizgcGetContext(), nullptr);
  const char *text = nullptr;
  EXPECT_EQ(gslusgmGetMessage(nullptr, 2101, &text, nullptr), GSLUSGM_OK);
  EXPECT_STREQ(text, "cut");
}

// Code sets named in uninstalled locales are taken from the name, so these
// cases hold on any machine. Rows: LC_ALL, LC_CTYPE, LANG (null: unset) and
// whether output is converted.
TEST_F(ContextTest, ConversionFlagsFollowTheEnvironmentCharacterSet) {
  const struct {
    const char *lc_all, *lc_ctype, *lang;
    uint32_t flag;
  } cases[] = {{nullptr, nullptr, nullptr, 0},
               {"C", nullptr, nullptr, 0},
               {nullptr, nullptr, "POSIX", 0},
               {nullptr, nullptr, "C.UTF-8", 0},
               {nullptr, nullptr, "xx_YY.utf8", 0},
               {nullptr, nullptr, "xx_YY.ISO-8859-1", 1},
               {"xx_YY.UTF-8", nullptr, "xx_YY.ISO-8859-1", 0},
               {nullptr, "xx_YY.ISO-8859-15", "xx_YY.UTF-8", 1},
               {"", nullptr, "xx_YY.ISO-8859-1", 1}};
  auto value = [](const char *v) { return v ? std::optional<std::string>(v) : std::nullopt; };
  for (const auto &c : cases) {
    qtest::dropContext();
    env_.set("LC_ALL", value(c.lc_all));
    env_.set("LC_CTYPE", value(c.lc_ctype));
    env_.set("LANG", value(c.lang));
    gsluctx *ctx = gsluizgcGetContext();
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(ctx->output_conversion, c.flag) << c.lc_all << " " << c.lc_ctype << " " << c.lang;
  }
}

// Every step that can fail: start-up reports it, publishes nothing, leaks
// nothing (checked by the sanitizer build) and the next attempt succeeds.
TEST_F(ContextTest, FailingStepLeavesNothingBehind) {
  for (gslu::StartupStep step :
       {gslu::kStepLanguageService, gslu::kStepContextMemory, gslu::kStepFirstLock,
        gslu::kStepLanguages, gslu::kStepThreadService, gslu::kStepResourceManager,
        gslu::kStepLocks, gslu::kStepMessages, gslu::kStepMessageBind, gslu::kStepSecondLock,
        gslu::kStepOutputMessages, gslu::kStepFormat, gslu::kStepRegistrySave}) {
    SCOPED_TRACE(testing::Message() << "step " << step);
    qtest::dropContext();
    gslu::startupFailStepForTesting(step);
    gsluctx *ctx = nullptr;
    EXPECT_EQ(gsluinit(&ctx),
              step == gslu::kStepContextMemory ? GSLU_INIT_NO_MEMORY : GSLU_INIT_SERVICE_FAILED);
    gslu::startupFailStepForTesting(gslu::kStepNone);
    EXPECT_EQ(ctx, nullptr);
    EXPECT_EQ(sgsluugGetContext(), nullptr);
    EXPECT_NE(gslu::startupDiagnostic()[0], '\0');
    ASSERT_NE(gsluizgcGetContext(), nullptr);
  }
}

// A handle's context wins; an allocator pair without a context yields none.
TEST_F(ContextTest, AClientHandlesContextWins) {
  gsluctx *global = gsluizgcGetContext();
  ASSERT_NE(global, nullptr);
  static const gsluMemCallbacks table{};
  gsluctx other{};
  int user = 0;
  gslcClientHandle handles[] = {{&other, &table, &user},
                                {nullptr, &table, &user},
                                {nullptr, nullptr, nullptr},
                                {&other, nullptr, nullptr}};
  EXPECT_EQ(gslccx_Getgsluctx(nullptr), global);
  EXPECT_EQ(gslccx_Getgsluctx(&handles[0]), &other);
  EXPECT_EQ(gslccx_Getgsluctx(&handles[1]), nullptr);
  EXPECT_EQ(gslccx_Getgsluctx(&handles[2]), global);
  EXPECT_EQ(gslccx_Getgsluctx(&handles[3]), &other);
}

// Each name, in any letter case, finds its code; shut-down drops the table.
TEST_F(ContextTest, PasswordSchemeTableMapsEachNameToItsCode) {
  gsluctx *ctx = gsluizgcGetContext();
  ASSERT_NE(ctx, nullptr);
  const std::pair<const char *, int32_t> schemes[] = {
      {"md4", 7001},     {"MD5", 7002},     {"Sha", 7003},      {"ssha", 7004},   {"SMD5", 7005},
      {"crypt", 7006},   {"sha256", 7011},  {"SHA384", 7012},   {"sha512", 7013}, {"ssha256", 7014},
      {"ssha384", 7015}, {"SSHA512", 7016}, {"mr-sha512", 7017}};
  EXPECT_EQ(gsluhhClntGetNumElements(ctx->password_schemes), std::size(schemes));
  for (const auto &[name, code] : schemes) {
    void *value = nullptr;
    ASSERT_EQ(gsluhhClntdSearchStr(ctx->password_schemes, name, &value), GSLUHH_OK) << name;
    EXPECT_EQ(*static_cast<int32_t *>(value), code) << name;
  }
  EXPECT_EQ(gslushut(ctx), GSLU_INIT_OK);
  EXPECT_EQ(ctx->password_schemes, nullptr);
}

// Every allocation start-up makes through the context fails in turn, until
// start-up gets through: each failure is reported with its reason. The
// catalogue's come before publication, so start-up publishes nothing; the
// password-scheme table's come after it, and then (deliberately) the context
// stays published.
TEST_F(ContextTest, EveryStartUpAllocationFailureIsReported) {
  int first_published = -1;
  int n = 0;
  for (;; ++n) {
    ASSERT_LT(n, 1000);
    qtest::dropContext();
    qtest::TestAllocator::budget = n;
    gslu::startupMallocHookForTesting(qtest::TestAllocator::allocate);
    gsluctx *ctx = reinterpret_cast<gsluctx *>(&n);
    const int status = gsluinit(&ctx);
    gslu::startupMallocHookForTesting(nullptr);
    qtest::TestAllocator::budget = qtest::TestAllocator::kUnlimited;
    gsluctx *published = sgsluugGetContext();
    if (published != nullptr) {
      ASSERT_EQ(gslumsSetHooks(published, nullptr, nullptr, nullptr, nullptr), GSLUM_OK);
    }
    if (status == GSLU_INIT_OK) {
      EXPECT_EQ(ctx, published);
      break;
    }
    EXPECT_EQ(status, GSLU_INIT_SERVICE_FAILED) << n;
    EXPECT_EQ(ctx, nullptr) << n;
    EXPECT_NE(gslu::startupDiagnostic()[0], '\0') << n;
    if (published == nullptr) {
      EXPECT_EQ(first_published, -1) << "unpublished again after " << first_published;
    } else if (first_published < 0) {
      first_published = n;
    }
  }
  EXPECT_GT(first_published, 0) << "the catalogue is read through the context's allocator";
  EXPECT_GT(n, first_published + static_cast<int>(gslu::kPasswordSchemeCount));
}

}  // namespace
