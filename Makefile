# Front doors:
#   make demo            build and run the tour of the library (twtool demo)
#   make test            build with warnings as errors and run the test suite
# More:
#   make check-sanitize  the test suite built with clang under AddressSanitizer and UndefinedBehaviorSanitizer
#   make bench           build and run the benchmarks (Release)
#   make fuzz            build the libFuzzer harnesses with clang (FUZZ_SECONDS=60 runs each)
#   make fuzz-smoke      the same, 30 seconds each from the seed corpora
# Each target first installs the Debian packages it needs (scripts/install-deps).

JOBS   ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE  ?= cmake
CTEST  ?= ctest

BUILD          ?= build
BUILD_SANITIZE ?= build-sanitize
BUILD_BENCH    ?= build-bench
BUILD_FUZZ     ?= build-fuzz
FUZZ_SECONDS   ?= 60

# The build's own make runs below this one: no "Entering directory" lines.
MAKEFLAGS += --no-print-directory

SANITIZER_ENV = ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:abort_on_error=0 \
                UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
                LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp

.PHONY: all build test demo check-sanitize bench fuzz fuzz-build fuzz-smoke clean

all: build

build:
	@scripts/install-deps build
	@$(CMAKE) -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTW_WERROR=ON --log-level=WARNING
	@$(CMAKE) --build $(BUILD) -j $(JOBS)

demo: build
	$(BUILD)/tools/twtool/twtool demo

test:
	@scripts/install-deps test
	@$(MAKE) build
	cd $(BUILD) && $(CTEST) --output-on-failure -j $(JOBS)

check-sanitize:
	@scripts/install-deps sanitize
	@$(CMAKE) -S . -B $(BUILD_SANITIZE) -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Debug -DTW_WERROR=ON -DTW_SANITIZE=ON \
	    -DTW_BUILD_BENCH=OFF --log-level=WARNING
	@$(CMAKE) --build $(BUILD_SANITIZE) -j $(JOBS)
	cd $(BUILD_SANITIZE) && $(SANITIZER_ENV) $(CTEST) --output-on-failure -j $(JOBS)

bench:
	@scripts/install-deps bench
	@$(CMAKE) -S . -B $(BUILD_BENCH) -DCMAKE_BUILD_TYPE=Release -DTW_BUILD_TESTS=OFF -DTW_BUILD_BENCH=ON --log-level=WARNING
	@$(CMAKE) --build $(BUILD_BENCH) -j $(JOBS)
	@for b in $(BUILD_BENCH)/bench/bench_*; do \
	    [ -f "$$b" ] && [ -x "$$b" ] || continue; echo "== $$b"; "$$b" || exit 1; \
	done

# The harnesses are the executables named fuzz_<parser> (not the automoc folders beside them).
FUZZERS = $(BUILD_FUZZ)/fuzz/fuzz_*

fuzz-build:
	@scripts/install-deps fuzz
	@$(CMAKE) -S . -B $(BUILD_FUZZ) -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DTW_BUILD_FUZZ=ON -DTW_BUILD_TESTS=OFF -DTW_BUILD_TOOLS=OFF -DTW_BUILD_BENCH=OFF --log-level=WARNING
	@$(CMAKE) --build $(BUILD_FUZZ) -j $(JOBS)

# fuzz: each harness FUZZ_SECONDS, growing a corpus in build-fuzz/corpus.
fuzz: fuzz-build
	@for f in $(FUZZERS); do [ -f "$$f" ] && [ -x "$$f" ] || continue; \
	    name=$$(basename $$f); echo "== $$name ($(FUZZ_SECONDS) s)"; mkdir -p $(BUILD_FUZZ)/corpus/$$name; \
	    "$$f" -max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 $(BUILD_FUZZ)/corpus/$$name fuzz/corpus/$$name \
	        || exit 1; \
	done

# fuzz-smoke: each harness 30 s from a copy of its seed corpus, so that the
# checked-in seeds are only read.
fuzz-smoke: fuzz-build
	@for f in $(FUZZERS); do [ -f "$$f" ] && [ -x "$$f" ] || continue; \
	    name=$$(basename $$f); work=$(BUILD_FUZZ)/smoke/$$name; rm -rf $$work; mkdir -p $$work; \
	    [ -d fuzz/corpus/$$name ] && cp -r fuzz/corpus/$$name/. $$work/; \
	    echo "== $$name (30 s)"; \
	    "$$f" -max_total_time=30 -print_final_stats=1 $$work 2>$$work.log || { cat $$work.log; exit 1; }; \
	    grep -E 'stat::number_of_executed_units|Done' $$work.log | tail -2; \
	done

clean:
	rm -rf $(BUILD) $(BUILD_SANITIZE) $(BUILD_BENCH) $(BUILD_FUZZ)
