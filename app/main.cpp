#include "app/RunSequence.h"
#include "app/StandardDescriptors.h"

int main(int argc, char** argv) {
  openMissingStandardDescriptors();
  return runTarnwick(argc, argv);
}
