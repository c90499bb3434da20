# Set-up commands: `make test` builds the library and runs every test; `make demo` builds and
# runs the main job. Both install missing Debian packages first (apt-get, as root).
BUILD_DIR ?= build
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_FLAGS ?=

TEST_PACKAGES = cmake make g++ pkg-config libgtest-dev libgmock-dev libcli11-dev libpng-dev \
                libwebp-dev libgif-dev \
                zlib1g-dev pybind11-dev python3-dev python3-numpy python3-pytest \
                python3-venv python3-pip python3-setuptools python3-wheel \
                python3-xarray python3-matplotlib python3-dask python3-distributed

# The main job: a LIC picture of the built-in dipole field, coloured by the field's magnitude,
# the LIC texture giving the lightness, with relief shading along the flow.
MUSKEIP = $(BUILD_DIR)/tools/muskeip
DEMO_ARGS ?= dipole --size 1024x1024 --length 25 --colour magnitude --colormap hue --emboss

.PHONY: all build test deps-test demo bench bench-python clean test-sanitize test-thread fuzz \
        format-check

all: build

deps-test:
	@scripts/install-deps.sh $(TEST_PACKAGES)

$(BUILD_DIR)/CMakeCache.txt:
	cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS)

build: deps-test $(BUILD_DIR)/CMakeCache.txt
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

demo: deps-test $(BUILD_DIR)/CMakeCache.txt
	cmake --build $(BUILD_DIR) -j $(JOBS) --target muskeip_tool
	$(MUSKEIP) lic $(DEMO_ARGS) -o demo.png
	@echo
	@echo "Wrote $(CURDIR)/demo.png"
	@echo "Make your own:  $(MUSKEIP) lic FIELD -o picture.png [options]"
	@echo "  FIELD: a FLIC VECTOR or FLIC SCALAR file, a PNM/PNG image, a UCD mesh, or one of"
	@echo "  circle, saddle, linear, brusselator, dipole.  All options: $(MUSKEIP) lic --help"

# Benchmarks (see bench/README.md): builds and runs every bench/bench_* program.
bench: deps-test
	@scripts/install-deps.sh libbenchmark-dev
	cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS)
	cmake --build $(BUILD_DIR) -j $(JOBS)
	@for program in $(BUILD_DIR)/bench/bench_*; do \
	    [ -x "$$program" ] || continue; echo "== $$program"; "$$program" || exit 1; done

# muskeip.lic against a numpy per-pixel LIC (bench/README.md, "Python module").
bench-python: build
	PYTHONPATH=$(BUILD_DIR)/python/module /usr/bin/python3 bench/bench_python.py

# The whole test suite built with AddressSanitizer and UndefinedBehaviorSanitizer (separate build
# directory). Python loads the instrumented module into an uninstrumented interpreter, so its
# tests run with the sanitizer runtime preloaded (and libstdc++, whose exceptions the runtime
# must see from the start); leak checking is off there only, since the interpreter keeps its
# own objects until exit (the library's leaks are checked by the C++ tests and fuzz replays).
# The pip package test builds its own uninstrumented copy, so it is left to `make test`; so is
# the Dask test under a memory limit per worker, which the sanitizers' own memory exceeds.
SANITIZE_BUILD_DIR ?= build-sanitize
SANITIZE_OPTIONS = ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1:detect_stack_use_after_return=1 \
                   UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
SANITIZE_PRELOAD = $(shell $(CXX) -print-file-name=libasan.so) $(shell $(CXX) -print-file-name=libstdc++.so)

test-sanitize: deps-test
	cmake -S . -B $(SANITIZE_BUILD_DIR) -DMUSKEIP_SANITIZE=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    $(CMAKE_FLAGS)
	cmake --build $(SANITIZE_BUILD_DIR) -j $(JOBS)
	cd $(SANITIZE_BUILD_DIR) && $(SANITIZE_OPTIONS) ctest --output-on-failure -j $(JOBS) -E '^python_'
	cd $(SANITIZE_BUILD_DIR) && LD_PRELOAD="$(SANITIZE_PRELOAD)" \
	    $(subst detect_leaks=1,detect_leaks=0,$(SANITIZE_OPTIONS)) \
	    ctest --output-on-failure -j $(JOBS) -R '^python_' -E '^python_(package|test_dask_memory)$$'

# The engine's tests (the tiled engine's threads among them) built with ThreadSanitizer in a
# separate build directory; any report fails the run.
THREAD_BUILD_DIR ?= build-thread
THREAD_TESTS = test_tiles test_compute test_progress test_animation test_modes

test-thread: deps-test
	cmake -S . -B $(THREAD_BUILD_DIR) -DMUSKEIP_THREAD_SANITIZE=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	    $(CMAKE_FLAGS)
	cmake --build $(THREAD_BUILD_DIR) -j $(JOBS) --target $(THREAD_TESTS)
	for program in $(THREAD_TESTS); do \
	    TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
	        $(THREAD_BUILD_DIR)/tests/$$program || exit 1; done

# libFuzzer targets (fuzz/README.md): built with clang into FUZZ_BUILD_DIR, then each target runs
# for FUZZ_SECONDS, FUZZ_JOBS at a time, starting from fuzz/corpus/<target>/. Findings are
# written to FUZZ_BUILD_DIR/findings/<target>/. FUZZ_TARGETS picks targets (default: all).
FUZZ_BUILD_DIR ?= build-fuzz
FUZZ_SECONDS ?= 60
FUZZ_JOBS ?= 1
FUZZ_TARGETS ?=
FUZZ_PACKAGES = cmake make clang libclang-rt-14-dev

fuzz:
	@scripts/install-deps.sh $(FUZZ_PACKAGES)
	cmake -S fuzz -B $(FUZZ_BUILD_DIR) -DCMAKE_CXX_COMPILER=clang++
	cmake --build $(FUZZ_BUILD_DIR) -j $(JOBS)
	fuzz/run.sh $(FUZZ_BUILD_DIR) $(FUZZ_SECONDS) $(FUZZ_JOBS) $(FUZZ_TARGETS)

# The C++ sources follow .clang-format (FORMAT_BASE=REV checks only the files changed since REV).
FORMAT_BASE ?=
format-check:
	@scripts/install-deps.sh clang-format git
	scripts/check-format.sh $(FORMAT_BASE)

clean:
	rm -rf $(BUILD_DIR)
