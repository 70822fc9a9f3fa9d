// driver/output_file.h - the LDIF of a run written to a named file (-o FILE)
// only when the run succeeds. Standard output goes to a temporary file in
// FILE's directory, renamed into FILE's place at the end; after a failure,
// and when a signal ends the program, FILE is neither created nor changed
// and no temporary file is left. Internal (C++ only).
#ifndef QUILLOMAT_DRIVER_OUTPUT_FILE_H
#define QUILLOMAT_DRIVER_OUTPUT_FILE_H

namespace quillomat {

class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile() { discard(); }
  OutputFile(const OutputFile &) = delete;
  OutputFile &operator=(const OutputFile &) = delete;

  // Creates the temporary file beside path and makes it standard output
  // (file descriptor 1), before anything is written there. 0, or the errno
  // value that stopped it (nothing is left behind then).
  [[nodiscard]] int open(const char *path);

  // Once standard output is closed: the temporary file's data on disk, the
  // permissions of the file it replaces (or those of a new file), and
  // renamed into path's place. 0, or the errno value that stopped it (the
  // temporary file is then removed).
  [[nodiscard]] int commit();

  // Removes the temporary file, if there is one.
  void discard();

  [[nodiscard]] bool isOpen() const { return fd_ >= 0; }

 private:
  const char *path_ = nullptr;
  int fd_ = -1;  // the temporary file, kept for its fsync and fchmod
};

}  // namespace quillomat

#endif  // QUILLOMAT_DRIVER_OUTPUT_FILE_H
