#include <cstdio>

#include "dump.hpp"

int main(int argc, char** argv) {
  return kolvdump::run(argc, argv, stdout, stderr);
}
