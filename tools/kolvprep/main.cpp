#include <csignal>
#include <cstdio>

#include "cli.hpp"

int main(int argc, char** argv) {
  // A closed pipe shows as EPIPE, and the program ends quietly.
  std::signal(SIGPIPE, SIG_IGN);
  return kolvprep::run(argc, argv, stdout, stderr);
}
