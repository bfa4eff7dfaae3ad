#include <iostream>

#include "cli/CommandLine.h"

int main(int argc, char** argv) { return bc::cli::run(argc, argv, std::cout, std::cerr); }
