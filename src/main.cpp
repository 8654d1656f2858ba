#include <cstdio>

#include "driver/entry.hpp"

int main(int argc, char** argv) {
  return kolv::kolv_main(argc, argv, kolv::Console{stdout, stderr});
}
