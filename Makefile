# All set-up happens through these targets; see README.md.
BUILD_DIR    ?= build
SANITIZE_DIR ?= build-sanitize
JOBS         ?= $(shell nproc 2>/dev/null || sysctl -n hw.ncpu 2>/dev/null || echo 2)
CMAKE_FLAGS  ?=
CTEST_FLAGS  ?= --output-on-failure --timeout 900 -j $(JOBS)

SANITIZER_ENV = ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1 \
                LSAN_OPTIONS=suppressions=$(CURDIR)/tests/sanitizer-suppressions.txt \
                UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

.PHONY: all deps build build-sanitize test test-normal test-sanitize demo app format bench clean

all: build

deps:
	@scripts/install-deps

$(BUILD_DIR)/build.ninja:
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)

$(SANITIZE_DIR)/build.ninja:
	cmake -S . -B $(SANITIZE_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DBRINDLECOURT_SANITIZE=ON $(CMAKE_FLAGS)

build: deps $(BUILD_DIR)/build.ninja
	cmake --build $(BUILD_DIR) -j $(JOBS)

build-sanitize: deps $(SANITIZE_DIR)/build.ninja
	cmake --build $(SANITIZE_DIR) -j $(JOBS)

test-normal: build
	cd $(BUILD_DIR) && ctest $(CTEST_FLAGS)

test-sanitize: build-sanitize
	cd $(SANITIZE_DIR) && $(SANITIZER_ENV) ctest $(CTEST_FLAGS)

test: test-normal test-sanitize

demo: build
	@echo "The command-line export is not built yet; showing the program's version instead."
	$(BUILD_DIR)/brindlecourt --version

app: build
	$(BUILD_DIR)/brindlecourt --demo

bench: build
	@for b in $(BUILD_DIR)/bench/bench_*; do echo "== $$b"; $$b; done

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR)
