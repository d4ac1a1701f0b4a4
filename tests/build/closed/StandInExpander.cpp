#include "platform/PCA9535.h"

bool PCA9535::connect(unsigned char /*address*/,
                      unsigned short /*direction*/,
                      unsigned short /*outputs*/,
                      unsigned short /*mask*/,
                      unsigned char /*flags*/) {
  return false;
}
void PCA9535::setPortActually(unsigned short /*outputs*/, unsigned short /*mask*/) {}
unsigned short PCA9535::getPort(unsigned short /*bits*/) { return 0; }
void PCA9535::disconnect(unsigned short /*mask*/) {}
