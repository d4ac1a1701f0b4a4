#include <iostream>

#include "simulator/images/ImageMaker.h"

int main(int argc, char** argv) { return orvane::RunImageMaker(argc, argv, std::cout, std::cerr); }
