// The mendo command: switches in, find and replace over each input held
// whole in memory, results out.

#ifndef MENDO_MENDO_H
#define MENDO_MENDO_H

namespace Orlo {

// Runs one mendo command line (argv[0] is the program) and returns the
// process exit status: 0 for a normal end, the usage screen and any fatal
// error (which is reported on standard error), -1 when no file was found
// or, with -errstop, a file could not be read or written.
int RunMendo(int argc, char** argv);

}  // namespace Orlo

#endif  // MENDO_MENDO_H
