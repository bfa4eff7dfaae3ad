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

# The main job on the generated sample data, into a fresh folder: a snapshot, an HTML archive and
# a PDF of the sample conversation, an exhibit of its flagged messages (Bates numbers, one
# redacted term), an HTML archive of the sample WhatsApp export that demo mode seals as an
# import, then the verification, a draft statement for counsel and an encrypted bundle
# of both exports, opened again with 7-Zip. The demo folder (sample database,
# snapshots, custody log) lives under it too, as the program's temporary folder. Snapshots are
# locked (immutable where permitted), so the old folder is unlocked before it is removed.
DEMO_DIR ?= $(BUILD_DIR)/demo
# The demo's bundle is opened by anyone following along, so its password is fixed and printed.
DEMO_PASSWORD  = demo-bundle-2468
DEMO_STATEMENT = Sample conversation – Draft statement for counsel.docx
DEMO_BUNDLE    = Sample conversation – Evidence bundle.zip
unlock = if [ -d "$(1)" ]; then \
	  chattr -R -i "$(1)" 2>/dev/null || chflags -R nouchg "$(1)" 2>/dev/null; \
	  chmod -R u+w "$(1)"; fi
demo: build
	@$(call unlock,$(DEMO_DIR))
	@rm -rf $(DEMO_DIR) && mkdir -p $(DEMO_DIR)/tmp
	@export TMPDIR="$(CURDIR)/$(DEMO_DIR)/tmp"; run="$(BUILD_DIR)/brindlecourt --demo --export-html"; \
	  $$run --snapshot && \
	  $$run --chats 1 --title "Sample conversation" --out "$(DEMO_DIR)/HTML archive" && \
	  import=$$($(BUILD_DIR)/brindlecourt --demo --list-sources | cut -f1 | grep -m1 '^import:') && \
	  $$run --source "$$import" --chats 1 --title "Sam Taylor (WhatsApp)" \
	    --out "$(DEMO_DIR)/WhatsApp HTML archive" && \
	  $$run --chats 1 --title "Sample conversation" --format pdf --out "$(DEMO_DIR)/PDF" && \
	  $$run --exhibit --chats 1 --bates-prefix SMITH --redact movers --include-notes \
	    --out "$(DEMO_DIR)/Exhibit" && \
	  $$run --verify-snapshots && \
	  $(BUILD_DIR)/brindlecourt --demo --statement --chats 1 --out "$(DEMO_DIR)/$(DEMO_STATEMENT)" && \
	  printf '%s\n' "$(DEMO_PASSWORD)" | $(BUILD_DIR)/brindlecourt --demo --bundle \
	    --title "Sample conversation" --out "$(DEMO_DIR)/$(DEMO_BUNDLE)" \
	    "$(DEMO_DIR)/HTML archive" "$(DEMO_DIR)/PDF" && \
	  echo "The demo bundle's password is $(DEMO_PASSWORD)" && \
	  sevenzip=$$(command -v 7zz || command -v 7z) && \
	  "$$sevenzip" t -p"$(DEMO_PASSWORD)" "$(DEMO_DIR)/$(DEMO_BUNDLE)" | grep -q "Everything is Ok" && \
	  echo "7-Zip opened the bundle with that password and found every file intact." && \
	  echo "Everything is in $(CURDIR)/$(DEMO_DIR) (sample data, snapshots and custody log in tmp/Kestrove-Demo)."

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

clean:
	@$(call unlock,$(DEMO_DIR))
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR)
