#include <iostream>

#include "simulator/ImageMaker.h"

int main(int argc, char** argv) { return orvane::RunImageMaker(argc, argv, std::cout, std::cerr); }
