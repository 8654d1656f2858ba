#include <csignal>
#include <cstdio>

#include "cli.hpp"

int main(int argc, char** argv) {
  // A reader that closes the pipe ends the output quietly: writes then fail
  // with EPIPE, which kolvdump takes as the end of its work.
  std::signal(SIGPIPE, SIG_IGN);
  return kolvdump::run(argc, argv, stdout, stderr);
}
