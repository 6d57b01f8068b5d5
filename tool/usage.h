// The usage screen of mendo.

#ifndef MENDO_USAGE_H
#define MENDO_USAGE_H

namespace Orlo {

// The whole screen: two line feeds, then the text block, ending in a line
// feed.
extern const char kUsageText[];

}  // namespace Orlo

#endif  // MENDO_USAGE_H
