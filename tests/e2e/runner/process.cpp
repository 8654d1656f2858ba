#include "process.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

extern char** environ;

namespace kolv::e2e {
namespace {

std::string errno_text(const char* what, int code) {
  return std::string(what) + ": " + std::strerror(code);
}

// posix_spawn with the child's working directory set by a file action; the
// capture files are opened by absolute path before the change of directory.
int spawn_in(pid_t* pid, const std::string& program, char* const argv[], const std::string& cwd,
             const std::string& stdout_path, const std::string& stderr_path) {
  posix_spawn_file_actions_t actions;
  int rc = posix_spawn_file_actions_init(&actions);
  if (rc != 0) return rc;
  const int out_flags = O_WRONLY | O_CREAT | O_TRUNC;
  rc = posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  if (rc == 0)
    rc = posix_spawn_file_actions_addopen(&actions, 1, stdout_path.c_str(), out_flags, 0600);
  if (rc == 0)
    rc = posix_spawn_file_actions_addopen(&actions, 2, stderr_path.c_str(), out_flags, 0600);
  if (rc == 0) rc = posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());
  if (rc == 0) rc = posix_spawn(pid, program.c_str(), &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  return rc;
}

void pause_ms(long ms) {
  timespec ts{ms / 1000, (ms % 1000) * 1000000L};
  nanosleep(&ts, nullptr);
}

}  // namespace

ProcessResult run_process(const std::string& program, const std::vector<std::string>& args,
                          const std::string& cwd, const std::string& stdout_path,
                          const std::string& stderr_path, std::chrono::milliseconds limit) {
  ProcessResult result;
  std::vector<std::string> strings;
  strings.push_back(program);
  strings.insert(strings.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& s : strings) argv.push_back(s.data());
  argv.push_back(nullptr);

  pid_t pid = 0;
  int rc = spawn_in(&pid, program, argv.data(), cwd, stdout_path, stderr_path);
  if (rc != 0) {
    result.error = errno_text(("cannot start " + program).c_str(), rc);
    return result;
  }
  result.started = true;

  const auto deadline = std::chrono::steady_clock::now() + limit;
  long wait_ms = 1;
  int status = 0;
  for (;;) {
    pid_t done = waitpid(pid, &status, WNOHANG);
    if (done == pid) break;
    if (done < 0 && errno != EINTR) {
      result.error = errno_text("waitpid", errno);
      return result;
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      kill(pid, SIGKILL);
      while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
      }
      result.timed_out = true;
      return result;
    }
    pause_ms(wait_ms);
    if (wait_ms < 20) wait_ms *= 2;
  }
  if (WIFEXITED(status)) {
    result.exited = true;
    result.exit_status = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.signal = WTERMSIG(status);
  }
  return result;
}

}  // namespace kolv::e2e
