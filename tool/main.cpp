// Entry of the mendo command; all of its logic is in mendo.cpp.

#include "mendo.h"

int main(int argc, char** argv) {
    return Orlo::RunMendo(argc, argv);
}
