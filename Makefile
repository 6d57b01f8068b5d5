# Front door of the build. `make` builds Release into build/, `make test`
# runs every test through CTest. The real work is CMake's; this file only
# checks the machine and picks the build directory.

BUILD      ?= build
SAN_BUILD  ?= build-sanitize
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
FUZZ_TARGETS = $(basename $(notdir $(wildcard fuzz/*_fuzz.cpp)))
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_ARGS ?=

.PHONY: all deps configure test test-sanitize test-tsan fuzz bench format format-check unicode-tables install clean

all: configure
	cmake --build $(BUILD) -j $(JOBS)

deps:
	@tools/ensure-deps.sh

configure: deps
	@test -f $(BUILD)/build.ninja || cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release $(CMAKE_ARGS)

test: all
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)

test-sanitize: deps
	@test -f $(SAN_BUILD)/build.ninja || cmake -S . -B $(SAN_BUILD) -G Ninja \
		-DCMAKE_BUILD_TYPE=RelWithDebInfo -DORLO_SANITIZE=ON $(CMAKE_ARGS)
	cmake --build $(SAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
		ctest --test-dir $(SAN_BUILD) --output-on-failure -j $(JOBS)

# The thread-safety tests (those labelled sync or regex_threads) under
# ThreadSanitizer, and mendo's file runs, where a second thread warms the
# pages of a large result.
test-tsan: deps
	@test -f $(TSAN_BUILD)/build.ninja || cmake -S . -B $(TSAN_BUILD) -G Ninja \
		-DCMAKE_BUILD_TYPE=RelWithDebInfo -DORLO_TSAN=ON $(CMAKE_ARGS)
	cmake --build $(TSAN_BUILD) -j $(JOBS)
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
		ctest --test-dir $(TSAN_BUILD) --output-on-failure -j $(JOBS) -L '^(sync|regex_threads)$$'
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
		ctest --test-dir $(TSAN_BUILD) --output-on-failure -j $(JOBS) -R '^MendoFiles\.'

# Builds the libFuzzer targets with clang and runs each for FUZZ_SECONDS on
# a scratch copy of its corpus (new inputs stay out of the repository). A
# crash leaves its input as $(FUZZ_BUILD)/run/<target>/crash-*; keep a
# minimised copy in fuzz/regressions/<target>/.
fuzz:
	@tools/ensure-deps.sh clang libclang-rt-14-dev
	@test -f $(FUZZ_BUILD)/build.ninja || cmake -S . -B $(FUZZ_BUILD) -G Ninja \
		-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ -DORLO_FUZZ=ON \
		-DORLO_BUILD_TESTS=OFF -DORLO_BUILD_BENCH=OFF $(CMAKE_ARGS)
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	@failed=; for t in $(FUZZ_TARGETS); do \
		run=$(abspath $(FUZZ_BUILD))/run/$$t; rm -rf $$run; mkdir -p $$run/corpus; \
		cp fuzz/corpus/$$t/* $$run/corpus/; \
		if [ -d fuzz/regressions/$$t ]; then cp fuzz/regressions/$$t/* $$run/corpus/; fi; \
		echo "== $$t ($(FUZZ_SECONDS) s)"; \
		(cd $$run && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
			$(abspath $(FUZZ_BUILD))/fuzz/$$t -max_total_time=$(FUZZ_SECONDS) -timeout=10 -rss_limit_mb=2048 \
			-print_final_stats=1 corpus) || failed="$$failed $$t"; \
	done; \
	if [ -n "$$failed" ]; then echo "fuzz: crashes in:$$failed" >&2; exit 1; fi

bench: all
	bench/run.sh

format:
	find $(wildcard lib tool tests bench fuzz) -name '*.h' -o -name '*.cpp' | xargs clang-format -i

format-check:
	find $(wildcard lib tool tests bench fuzz) -name '*.h' -o -name '*.cpp' | xargs clang-format --dry-run --Werror

# Rewrites lib/utilitis/src/regex/unicode_tables.cpp from Debian's
# unicode-data (installed when run as root, like the build packages).
unicode-tables:
	@tools/ensure-deps.sh python3 unicode-data
	tools/gen_unicode_tables.py

install: all
	cmake --install $(BUILD)

clean:
	rm -rf $(BUILD) $(SAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD)
