# Set-up and everyday targets.  `make demo` and `make test` work from a clean
# checkout on Debian 12: both install missing packages first.
BUILD   ?= build
ASAN    ?= build-asan
JOBS    ?= $(shell nproc)
CMAKE_FLAGS ?=
MAKEFLAGS += --no-print-directory

.PHONY: all deps build test sanitize demo bench clean

all: build

deps:
	@scripts/deps.sh

$(BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DVRNCAL_WERROR=ON $(CMAKE_FLAGS)

build: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The same tests under AddressSanitizer and UndefinedBehaviorSanitizer: the
# library, the tool, the fuzz corpora and the install test (whose host
# program is built with the same sanitizers).
sanitize: deps
	cmake -S . -B $(ASAN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVRNCAL_SANITIZE=ON \
	      -DVRNCAL_WERROR=ON $(CMAKE_FLAGS)
	cmake --build $(ASAN) -j $(JOBS)
	cd $(ASAN) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --output-on-failure -j $(JOBS)

# The main job on the bundled sample: what the calibration holds, a test
# pattern corrected to device counts, what each stage of the correction buys
# on the simulated head, and a plot written to out/demo.png.  Only the library
# and the tool are built, and the build speaks only when it fails.
DEMO_LOG = $(BUILD)/demo-build.log
demo: deps
	@mkdir -p $(BUILD)
	@{ [ -f $(BUILD)/CMakeCache.txt ] || \
	   cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DVRNCAL_WERROR=ON $(CMAKE_FLAGS); } \
	   > $(DEMO_LOG) 2>&1 && \
	 cmake --build $(BUILD) -j $(JOBS) --target vrncal_cli >> $(DEMO_LOG) 2>&1 || \
	 { echo "make demo: the build failed; its output is in $(DEMO_LOG)" >&2; \
	   grep -m 1 -E 'error|Error' $(DEMO_LOG) >&2; exit 1; }
	@scripts/demo.sh $(BUILD)

bench: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DVRNCAL_BUILD_BENCH=ON $(CMAKE_FLAGS)
	cmake --build $(BUILD) -j $(JOBS)
	$(BUILD)/bench/vrncal_batch_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
	$(BUILD)/bench/vrncal_bench

clean:
	rm -rf $(BUILD) $(ASAN)
