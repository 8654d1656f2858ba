// Scratch directories for every test program.
#pragma once

#include <string>
#include <vector>

namespace kolv_support {

// A fresh directory under `under` (by default $TMPDIR, or /tmp), named from
// `prefix`, its path resolved (kolv prints resolved names). It goes with everything in it, made
// writable first, when the object goes. A directory that cannot be made ends
// the program with a message: nothing can be tested without one.
class ScratchDir {
 public:
  explicit ScratchDir(const std::string& prefix = "kolv_test", const std::string& under = "");
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  // Names in the directory (not . and ..), sorted.
  std::vector<std::string> entries() const;

 private:
  std::string path_;
};

// Removes a directory tree, making every directory in it writable first.
void remove_tree(const std::string& path);

}  // namespace kolv_support
