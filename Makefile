# The README's two commands, nothing clever.
BUILD ?= build
JOBS ?= 2

.PHONY: example test build clean

build:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BUILD) -j $(JOBS)

# Build kolv and convert the bundled example.
example: build
	cd examples && ../$(BUILD)/kolv example.cmd && ../$(BUILD)/kolvdump survey.dat

# Build everything and run the whole test suite.
test: build
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

clean:
	rm -rf $(BUILD)
