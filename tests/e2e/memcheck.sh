#!/bin/sh
# Runs kolv under valgrind memcheck for the golden cases: any memory error or
# leak prints on standard error and changes the exit status, so the case
# fails. Usage (from a build directory):
#   KOLV_BIN=$PWD/kolv KOLV_E2E_PROGRAM=$PWD/../tests/e2e/memcheck.sh \
#     ctest -L e2e
exec valgrind -q --error-exitcode=99 --leak-check=full \
  --errors-for-leak-kinds=definite,indirect "${KOLV_BIN:?set KOLV_BIN to the kolv program}" "$@"
