# The two commands a new user needs: `make run` and `make test`. Both set up what is missing.
PRESET ?= default
BUILD_DIR := build/$(PRESET)
FUZZ_SECONDS ?= 60

.PHONY: all deps configure build run test bench fuzz asan-test tsan-test clean

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	@cmake --preset $(PRESET) >/dev/null

build: configure
	@cmake --build --preset $(PRESET)

run: build
	@bash scripts/run-demo.sh $(BUILD_DIR)

test: build
	@QT_QPA_PLATFORM=offscreen ctest --preset $(PRESET)

bench: build
	@bash scripts/run-benchmarks.sh $(BUILD_DIR)

fuzz: deps
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz
	@bash scripts/run-fuzzers.sh build/fuzz $(FUZZ_SECONDS)

asan-test: deps
	@cmake --preset asan >/dev/null && cmake --build --preset asan && ctest --preset asan

tsan-test: deps
	@cmake --preset tsan >/dev/null && cmake --build --preset tsan && ctest --preset tsan -L threads

clean:
	rm -rf build
