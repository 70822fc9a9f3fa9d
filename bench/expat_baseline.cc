// bench/expat_baseline.cc - the floor the converter is measured against:
// expat parsing a document with empty element and character handlers, read
// in the same chunk size as the converter's XML layer, producing nothing.
//
//   expat_baseline FILE
#include <expat.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "dsml/xml.h"

namespace {

void XMLCALL onStart(void *, const XML_Char *, const XML_Char **) {}
void XMLCALL onEnd(void *, const XML_Char *) {}
void XMLCALL onText(void *, const XML_Char *, int) {}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: expat_baseline FILE\n");
    return 2;
  }
  int fd = ::open(argv[1], O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    std::perror(argv[1]);
    return 1;
  }
  XML_Parser p = XML_ParserCreate(nullptr);
  XML_SetElementHandler(p, onStart, onEnd);
  XML_SetCharacterDataHandler(p, onText);
  constexpr int kChunk = XMLIF_DEFAULT_CHUNK_SIZE;
  int status = 0;
  for (;;) {
    void *buffer = XML_GetBuffer(p, kChunk);
    if (buffer == nullptr) {
      status = 1;
      break;
    }
    ssize_t n = ::read(fd, buffer, kChunk);
    if (n < 0) {
      std::perror(argv[1]);
      status = 1;
      break;
    }
    if (XML_ParseBuffer(p, static_cast<int>(n), n == 0) != XML_STATUS_OK) {
      std::fprintf(stderr, "%s: %s\n", argv[1], XML_ErrorString(XML_GetErrorCode(p)));
      status = 1;
      break;
    }
    if (n == 0) break;
  }
  XML_ParserFree(p);
  ::close(fd);
  return status;
}
