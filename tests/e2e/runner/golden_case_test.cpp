// One test per case folder under the cases directory, each running the real
// kolv binary (see tests/e2e/README.md).
#include "golden_case.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

#include "build_info.hpp"

namespace kolv::e2e {
namespace {

bool env_flag(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && std::strcmp(value, "1") == 0;
}

class Golden : public ::testing::TestWithParam<std::string> {};

TEST_P(Golden, Case) {
  RunnerOptions options;
  // KOLV_E2E_PROGRAM in the environment runs the cases through another
  // program, such as tests/e2e/memcheck.sh, which runs kolv under valgrind.
  const char* other = std::getenv("KOLV_E2E_PROGRAM");
  options.program = other != nullptr && *other != '\0' ? other : KOLV_E2E_PROGRAM;
  options.build_date = KOLV_BUILD_DATE;
  options.keep = env_flag("KOLV_E2E_KEEP");
  options.update = env_flag("KOLV_E2E_UPDATE");
  CaseOutcome outcome = run_case(std::filesystem::path(KOLV_E2E_CASES_DIR) / GetParam(), options);
  for (const std::string& note : outcome.notes) std::cout << GetParam() << ": " << note << "\n";
  if (!outcome.skipped.empty()) {
    // CI has the real-data folder and sets KOLV_REQUIRE_REALDATA, so there a
    // missing folder fails instead of passing unseen.
    if (env_flag("KOLV_REQUIRE_REALDATA")) FAIL() << GetParam() << ": " << outcome.skipped;
    GTEST_SKIP() << outcome.skipped;
  }
  for (const std::string& failure : outcome.failures)
    ADD_FAILURE() << GetParam() << ": " << failure;
}

INSTANTIATE_TEST_SUITE_P(E2E, Golden, ::testing::ValuesIn(list_case_names(KOLV_E2E_CASES_DIR)),
                         [](const ::testing::TestParamInfo<std::string>& param_info) {
                           return test_name_for(param_info.param);
                         });

}  // namespace
}  // namespace kolv::e2e
