// The root of the exception family. The classes below byExp add nothing, so
// this file holds the only out-of-line code of the tree: the constructor and
// the virtual destructor, whose single definition anchors the type
// information that every catch by base class relies on.

#include "orlo/exceptions.h"

namespace Orlo {

// The message is taken whole, from position 0 up to the end; a whole-range
// substring shares the caller's buffer instead of copying it.
byExp::byExp(const stringEx& text, int32_t kind) : message(text, 0, npos), code(kind) {}

byExp::~byExp() = default;

}  // namespace Orlo
