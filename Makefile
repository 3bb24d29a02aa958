# Set-up and everyday targets.  `make demo` and `make test` work from a clean
# checkout on Debian 12: both install missing packages first.
BUILD   ?= build
ASAN    ?= build-asan
JOBS    ?= $(shell nproc)
CMAKE_FLAGS ?=

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
# on the simulated head, and a plot written to out/demo.png.
VRNCAL = $(BUILD)/tools/vrncal
demo: build
	@mkdir -p out
	$(VRNCAL) info examples/sample.cor
	$(VRNCAL) correct examples/sample.cor examples/points.txt -o out/counts.txt
	@echo "corrected examples/points.txt into out/counts.txt; the first lines:"
	@head -n 6 out/counts.txt
	$(VRNCAL) evaluate examples/sample.cor --lens examples/lens.ini
	$(VRNCAL) plot examples/sample.cor --lens examples/lens.ini -o out/demo.png
	@echo "plot written to out/demo.png"

bench: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DVRNCAL_BUILD_BENCH=ON $(CMAKE_FLAGS)
	cmake --build $(BUILD) -j $(JOBS)
	$(BUILD)/bench/vrncal_batch_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
	$(BUILD)/bench/vrncal_bench

clean:
	rm -rf $(BUILD) $(ASAN)
