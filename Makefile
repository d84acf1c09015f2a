# Quick start: `make test` (both builds and the fuzz smoke run), `make demo`.
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_SECONDS ?= 20
FUZZ_LONG_SECONDS ?= 600
PYTHON ?= /usr/bin/python3
CTEST_FLAGS ?= --output-on-failure -j 2

.PHONY: all deps build test test-normal test-asan fuzz fuzz-long bench demo clean python test-python

all: build

deps:
	@scripts/install-deps.sh

# Normal build: g++, tests, benchmarks and the orvane tool.
$(BUILD)/build.ninja: | deps
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=g++ \
	  -DORVANE_BUILD_TESTS=ON -DORVANE_BUILD_BENCH=ON -DORVANE_BUILD_TOOLS=ON

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD)

# Sanitizer build: clang with ASan+UBSan, tests and libFuzzer targets.
$(ASAN_BUILD)/build.ninja: | deps
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
	  -DORVANE_BUILD_TESTS=ON -DORVANE_SANITIZE=ON -DORVANE_BUILD_FUZZ=ON -DORVANE_BUILD_TOOLS=ON

test-normal: build
	ctest --test-dir $(BUILD) $(CTEST_FLAGS)

test-asan: deps $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD)
	ctest --test-dir $(ASAN_BUILD) $(CTEST_FLAGS)

# The Python package, importable with PYTHONPATH=$(BUILD)/python, and the C++ reference
# program its tests compare against.
python: deps $(BUILD)/build.ninja
	cmake -S . -B $(BUILD) -DORVANE_BUILD_PYTHON=ON -DPython3_EXECUTABLE=$(PYTHON) > /dev/null
	cmake --build $(BUILD) --target orvane_python orvane_reference

# pytest's own exit status fails the target (5: no tests collected counts as a failure).
test-python: python
	PYTHONPATH=$(BUILD)/python PYTHONDONTWRITEBYTECODE=1 ORVANE_REFERENCE=$(BUILD)/python/orvane_reference \
	  $(PYTHON) -m pytest -q -p no:cacheprovider python/tests

fuzz: test-asan
	scripts/run-fuzzers.sh $(ASAN_BUILD) $(FUZZ_SECONDS)

# Longer fuzzing on demand: every target FUZZ_LONG_SECONDS on its corpus (FUZZERS="a_fuzzer
# b_fuzzer" picks some). Inputs that add coverage are minimised into fuzz/corpus/, to commit;
# a faulting input is kept in $(ASAN_BUILD)/fuzz-faults/.
fuzz-long: deps $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD)
	scripts/run-fuzzers.sh --keep $(ASAN_BUILD) $(FUZZ_LONG_SECONDS) $(FUZZERS)

test: test-normal test-python test-asan fuzz

bench: build
	@for b in $(BUILD)/bench/*_bench; do echo "== $$b"; $$b; done

# Duplicates found among real photographs; builds only the tool.
demo: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) --target orvane_tool
	@scripts/demo.sh $(BUILD)/tools/orvane/orvane

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
