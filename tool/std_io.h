// mendo's standard streams, at block speed.
//
// Standard input is read whole with large read(2) calls straight into the
// content buffer. Standard output and error are written with write(2), in
// as few calls as the kernel allows; nothing is buffered in the process, so
// every message is out the moment it is written, in program order.

#ifndef MENDO_STD_IO_H
#define MENDO_STD_IO_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "orlo/buffer.h"

namespace Orlo {

// Appends every byte of standard input to `content`, then the byte 0xFF.
// The stray byte is what the tool has always delivered behind its input (the
// failed read at end of input stores its -1): it is searched and printed
// like the rest, so pipe output is one byte longer than its input when
// nothing matched. A read error ends the input like its end does.
void ReadStandardInput(byteEx& content);

// Writes all bytes to standard output / standard error. A stream that can
// no longer be written (a closed pipe) takes no more output, silently.
void WriteStdout(std::string_view bytes);
void WriteStderr(std::string_view bytes);

// Tells that about `bytes` of output are coming in several writes, so that
// a pipe on standard output can be widened for them first.
void ExpectStdout(uint64_t bytes);

}  // namespace Orlo

#endif  // MENDO_STD_IO_H
