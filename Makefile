# Front doors:
#   make demo            build and run the tour of the library (twtool demo)
#   make test            build with warnings as errors and run the test suite
# More:
#   make check-sanitize  the test suite under AddressSanitizer and UndefinedBehaviorSanitizer
#   make bench           build and run the benchmarks (Release)
#   make fuzz            build the libFuzzer harnesses with clang (FUZZ_SECONDS=60 runs each)

JOBS   ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE  ?= cmake
CTEST  ?= ctest

BUILD          ?= build
BUILD_SANITIZE ?= build-sanitize
BUILD_BENCH    ?= build-bench
BUILD_FUZZ     ?= build-fuzz
FUZZ_SECONDS   ?= 60

SANITIZER_ENV = ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:abort_on_error=0 \
                UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
                LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp

.PHONY: all deps configure build test demo check-sanitize bench fuzz clean

all: build

deps:
	@scripts/install-deps

configure: deps
	$(CMAKE) -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTW_WERROR=ON

build: configure
	$(CMAKE) --build $(BUILD) -j $(JOBS)

test: build
	cd $(BUILD) && $(CTEST) --output-on-failure -j $(JOBS)

demo: build
	$(BUILD)/tools/twtool/twtool demo

check-sanitize: deps
	$(CMAKE) -S . -B $(BUILD_SANITIZE) -DCMAKE_BUILD_TYPE=Debug -DTW_WERROR=ON -DTW_SANITIZE=ON -DTW_BUILD_BENCH=OFF
	$(CMAKE) --build $(BUILD_SANITIZE) -j $(JOBS)
	cd $(BUILD_SANITIZE) && $(SANITIZER_ENV) $(CTEST) --output-on-failure -j $(JOBS)

bench: deps
	$(CMAKE) -S . -B $(BUILD_BENCH) -DCMAKE_BUILD_TYPE=Release -DTW_BUILD_TESTS=OFF -DTW_BUILD_BENCH=ON
	$(CMAKE) --build $(BUILD_BENCH) -j $(JOBS)
	@for b in $(BUILD_BENCH)/bench/bench_*; do [ -x "$$b" ] && echo "== $$b" && "$$b" || exit 1; done

fuzz:
	@scripts/install-deps --fuzz
	CC=clang CXX=clang++ $(CMAKE) -S . -B $(BUILD_FUZZ) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    -DTW_BUILD_FUZZ=ON -DTW_BUILD_TESTS=OFF -DTW_BUILD_TOOLS=OFF -DTW_BUILD_BENCH=OFF
	$(CMAKE) --build $(BUILD_FUZZ) -j $(JOBS)
	@for f in $(BUILD_FUZZ)/fuzz/fuzz_*; do [ -x "$$f" ] || continue; \
	    echo "== $$f ($(FUZZ_SECONDS) s)"; mkdir -p $(BUILD_FUZZ)/corpus/$$(basename $$f); \
	    "$$f" -max_total_time=$(FUZZ_SECONDS) $(BUILD_FUZZ)/corpus/$$(basename $$f) fuzz/corpus/$$(basename $$f) || exit 1; \
	done

clean:
	rm -rf $(BUILD) $(BUILD_SANITIZE) $(BUILD_BENCH) $(BUILD_FUZZ)
