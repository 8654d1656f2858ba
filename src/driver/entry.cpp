#include "driver/entry.hpp"

namespace kolv {

int kolv_main(int, const char* const*, Console) { return 0; }

}  // namespace kolv
