# The README's two commands, nothing clever.
BUILD ?= build
JOBS ?= 2
# Extra cmake settings, e.g. CMAKE_ARGS=-DKOLV_WERROR=ON (as CI does).
CMAKE_ARGS ?=

.PHONY: example test configure build clean

configure:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_ARGS)

# Build only the two programs and convert the bundled example.
example: configure
	cmake --build $(BUILD) -j $(JOBS) --target kolv kolvdump
	cd examples && ../$(BUILD)/kolv example.cmd && ../$(BUILD)/kolvdump survey.dat

# Build everything and run the whole test suite.
build: configure
	cmake --build $(BUILD) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

clean:
	rm -rf $(BUILD)
