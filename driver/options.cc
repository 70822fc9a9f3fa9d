// driver/options.cc - reads the command line. Contracts in driver/options.h.
#include "driver/options.h"

namespace quillomat {
namespace {

constexpr std::string_view kStdin = "-";
constexpr std::string_view kEndOfOptions = "--";

// What an option does to the record.
enum class Effect : uint8_t {
  kWholeRecords,
  kStrict,
  kNoWrap,
  kProgress,
  kKeepGoing,
  kOutput,  // takes a value: the file
  kHelp,
  kVersion,
};

struct OptionSpec {
  char short_name;  // 0: none
  std::string_view long_name;
  Effect effect;
};

constexpr OptionSpec kOptions[] = {
    {'w', "whole-records", Effect::kWholeRecords},
    {'s', "strict", Effect::kStrict},
    {0, "no-wrap", Effect::kNoWrap},
    {'p', "progress", Effect::kProgress},
    {'c', "continue", Effect::kKeepGoing},
    {'o', "output", Effect::kOutput},
    {'h', "help", Effect::kHelp},
    {'V', "version", Effect::kVersion},
};

[[nodiscard]] const OptionSpec *findShort(char c) {
  for (const OptionSpec &o : kOptions) {
    if (o.short_name == c && c != 0) return &o;
  }
  return nullptr;
}

[[nodiscard]] const OptionSpec *findLong(std::string_view name) {
  for (const OptionSpec &o : kOptions) {
    if (o.long_name == name) return &o;
  }
  return nullptr;
}

// The walk over the arguments, with what it has found so far.
class Reader {
 public:
  Reader(int argc, char **argv, Options *options) : argc_(argc), argv_(argv), options_(options) {}

  // Reads every argument; false at the first usage error.
  [[nodiscard]] bool readAll() {
    for (next_ = 1; next_ < argc_;) {
      char *arg = argv_[next_++];
      const std::string_view a(arg);
      if (options_ended_ || a == kStdin || a.size() < 2 || a[0] != '-') {
        if (!document(arg)) return false;
      } else if (a == kEndOfOptions) {
        options_ended_ = true;
      } else if (a[1] == '-') {
        if (!longOption(arg)) return false;
      } else if (!shortOptions(arg)) {
        return false;
      }
    }
    if (options_->request == Request::kConvert && options_->document_count == 0) {
      return fail(kMsgNoDocument, "");
    }
    return true;
  }

  [[nodiscard]] const UsageError &error() const { return error_; }

 private:
  [[nodiscard]] bool fail(uint32_t message, const char *argument, char letter = 0) {
    error_ = {message, argument, letter};
    return false;
  }

  [[nodiscard]] bool document(char *arg) {
    if (std::string_view(arg) == kStdin) {
      if (stdin_named_) return fail(kMsgStdinTwice, arg);
      stdin_named_ = true;
    }
    // Slot 1 + count lies before the argument just read.
    argv_[1 + options_->document_count++] = arg;
    return true;
  }

  // --name or --name=value.
  [[nodiscard]] bool longOption(const char *arg) {
    std::string_view name(arg + 2);
    const char *value = nullptr;
    if (const std::size_t eq = name.find('='); eq != std::string_view::npos) {
      value = arg + 2 + eq + 1;
      name = name.substr(0, eq);
    }
    const OptionSpec *o = findLong(name);
    if (o == nullptr) return fail(kMsgUnknownOption, arg);
    if (o->effect != Effect::kOutput) {
      if (value != nullptr) return fail(kMsgTakesNoValue, arg);
      apply(o->effect, nullptr);
      return true;
    }
    if (value == nullptr && !takeNext(&value)) return fail(kMsgNeedsValue, arg);
    apply(o->effect, value);
    return true;
  }

  // -abc, each letter an option; -o takes the rest of the argument, or the
  // next one.
  [[nodiscard]] bool shortOptions(const char *arg) {
    for (const char *p = arg + 1; *p != '\0'; ++p) {
      const OptionSpec *o = findShort(*p);
      if (o == nullptr) return fail(kMsgUnknownOption, arg, *p);
      if (o->effect != Effect::kOutput) {
        apply(o->effect, nullptr);
        continue;
      }
      const char *value = p[1] != '\0' ? p + 1 : nullptr;
      if (value == nullptr && !takeNext(&value)) return fail(kMsgNeedsValue, arg, *p);
      apply(o->effect, value);
      return true;
    }
    return true;
  }

  // The next argument as an option's value, if there is one.
  [[nodiscard]] bool takeNext(const char **value) {
    if (next_ >= argc_) return false;
    *value = argv_[next_++];
    return true;
  }

  void apply(Effect effect, const char *value) {
    switch (effect) {
      case Effect::kWholeRecords: options_->whole_records = true; break;
      case Effect::kStrict: options_->strict = true; break;
      case Effect::kNoWrap: options_->no_wrap = true; break;
      case Effect::kProgress: options_->progress = true; break;
      case Effect::kKeepGoing: options_->keep_going = true; break;
      case Effect::kOutput: options_->output = value; break;
      // The first of --help and --version wins.
      case Effect::kHelp:
        if (options_->request == Request::kConvert) options_->request = Request::kHelp;
        break;
      case Effect::kVersion:
        if (options_->request == Request::kConvert) options_->request = Request::kVersion;
        break;
    }
  }

  int argc_;
  char **argv_;
  Options *options_;
  int next_ = 1;
  bool options_ended_ = false;
  bool stdin_named_ = false;
  UsageError error_;
};

}  // namespace

void readOptions(int argc, char **argv, Options *options, UsageError *error) {
  *error = UsageError{};
  options->documents = argv + 1;
  Reader reader(argc, argv, options);
  if (!reader.readAll()) *error = reader.error();
}

}  // namespace quillomat
