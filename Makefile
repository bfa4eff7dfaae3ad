# All set-up happens through these targets; see README.md.
BUILD_DIR    ?= build
SANITIZE_DIR ?= build-sanitize
JOBS         ?= $(shell nproc 2>/dev/null || sysctl -n hw.ncpu 2>/dev/null || echo 2)
CMAKE_FLAGS  ?=
CTEST_FLAGS  ?= --output-on-failure --timeout 900 -j $(JOBS)

SANITIZER_ENV = ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1 \
                LSAN_OPTIONS=suppressions=$(CURDIR)/tests/sanitizer-suppressions.txt:print_suppressions=0 \
                UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

.PHONY: all deps build build-sanitize test test-normal test-sanitize test-package package demo app format check check-format check-tidy fuzz bench clean

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

# The installable package of this system: a .deb on Linux, a .dmg on macOS (untested here).
package: build
	rm -f $(BUILD_DIR)/package/*.deb $(BUILD_DIR)/package/*.dmg
	cd $(BUILD_DIR) && cpack

# Only a Debian system can unpack and check the .deb; elsewhere there is nothing to check.
ifeq ($(shell uname -s),Linux)
test-package: package
	tests/package/installed-package.sh $(BUILD_DIR)/package/brindlecourt_*.deb
else
test-package:
endif

test: check test-normal test-sanitize test-package fuzz

# The main jobs on the generated sample data, into a fresh folder (scripts/demo says which).
DEMO_DIR ?= $(BUILD_DIR)/demo
demo: build
	@scripts/demo $(BUILD_DIR)/brindlecourt $(DEMO_DIR)

app: build
	$(BUILD_DIR)/brindlecourt --demo

bench: build
	@for b in $(BUILD_DIR)/bench/bench_*; do echo "== $$b"; $$b; done

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

# Style and static analysis: any file clang-format would change, or any clang-tidy finding
# (.clang-tidy names the checks), fails.
check: check-format check-tidy

check-format: deps
	@git ls-files '*.cpp' '*.h' '*.mm' | xargs clang-format --dry-run -Werror

# qpdf's headers do not compile with clang and libstdc++ 12 in C++20, so the one file that
# includes them is left to the compiler's own warnings.
check-tidy: build
	@git ls-files 'src/*.cpp' | grep -v 'src/export/PageExporter.cpp' | \
	  xargs -P $(JOBS) -n 4 clang-tidy -p $(BUILD_DIR) --quiet \
	  > $(BUILD_DIR)/clang-tidy.txt 2>/dev/null; \
	  if grep -E '(warning|error):' $(BUILD_DIR)/clang-tidy.txt; then exit 1; fi

# The libFuzzer target, built with clang in a folder of its own, for 60 seconds on its seeds.
FUZZ_DIR ?= build-fuzz
FUZZ_SECONDS ?= 60
$(FUZZ_DIR)/build.ninja:
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DBRINDLECOURT_FUZZ=ON -DBRINDLECOURT_APP=OFF $(CMAKE_FLAGS)

fuzz: deps $(FUZZ_DIR)/build.ninja
	cmake --build $(FUZZ_DIR) -j $(JOBS) --target fuzz_decoding
	@rm -rf $(FUZZ_DIR)/corpus && cp -r bench/fuzz/corpus $(FUZZ_DIR)/corpus
	@$(SANITIZER_ENV) $(FUZZ_DIR)/bench/fuzz_decoding -max_total_time=$(FUZZ_SECONDS) \
	  -max_len=4096 -print_final_stats=1 $(FUZZ_DIR)/corpus > $(FUZZ_DIR)/fuzz.log 2>&1; \
	  status=$$?; tail -12 $(FUZZ_DIR)/fuzz.log; exit $$status

# Snapshots are locked (immutable where permitted), so they are unlocked before removal.
unlock = if [ -d "$(1)" ]; then \
	  chattr -R -i "$(1)" 2>/dev/null || chflags -R nouchg "$(1)" 2>/dev/null; \
	  chmod -R u+w "$(1)"; fi
clean:
	@$(call unlock,$(DEMO_DIR))
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR)
