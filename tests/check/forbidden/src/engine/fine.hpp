// An engine header that keeps to its layer.
#pragma once

#include "format/dataset.hpp"
