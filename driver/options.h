// driver/options.h - the command line of quillomat, read once, in one walk
// over the arguments, into the one record the rest of the driver is handed.
// Internal (C++ only).
//
// Options may come anywhere among the documents; "--" ends them. Short
// options may be bundled ("-sw"), and -o takes its file in the same
// argument ("-oout.ldif") or the next. Long options take a value after "="
// or as the next argument (--output). "-" is standard input, at most once.
#ifndef QUILLOMAT_DRIVER_OPTIONS_H
#define QUILLOMAT_DRIVER_OPTIONS_H

#include <cstdint>
#include <string_view>


namespace quillomat {

// What the arguments ask for.
enum class Request { kConvert, kHelp, kVersion };

struct Options {
  Request request = Request::kConvert;
  bool whole_records = false;  // -w: no record cut into pieces
  bool strict = false;         // -s: LDIF every RFC 2849 reader loads exactly
  bool no_wrap = false;        // --no-wrap: no line folded
  bool progress = false;       // -p: progress on standard error
  bool keep_going = false;     // -c: a failed document does not stop the run
  const char *output = nullptr;  // -o FILE, or null for standard output
  // The documents in order, as named on the command line ("-" for standard
  // input): the first document_count slots after argv[0].
  char *const *documents = nullptr;
  uint32_t document_count = 0;
};

// Why the arguments cannot be used: the message to print (a catalogue
// number) and the argument it names: the letter of a bundle of short
// options ("-x"), or argument.
struct UsageError {
  uint32_t message = 0;  // 0: none
  const char *argument = "";
  char letter = 0;  // not 0: the argument is this short option
};

// Reads argv[1] to argv[argc - 1] into *options. The documents' pointers
// are moved to the front of argv[1...] as they are found (every slot they
// take has been read by then), so nothing is allocated and nothing can run
// out. A usage error comes back in *error (and *options is then not to be
// used); only the first one is told. A request for help or the version
// needs no document; the first of the two wins.
void readOptions(int argc, char **argv, Options *options, UsageError *error);

// Catalogue messages of usage errors.
inline constexpr uint32_t kMsgUnknownOption = 2117;
inline constexpr uint32_t kMsgStdinTwice = 2118;
inline constexpr uint32_t kMsgNoDocument = 2119;
inline constexpr uint32_t kMsgNeedsValue = 2133;
inline constexpr uint32_t kMsgTakesNoValue = 2134;

}  // namespace quillomat

#endif  // QUILLOMAT_DRIVER_OPTIONS_H
