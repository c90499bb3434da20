# Set-up commands: `make test` builds the library and runs every test; `make demo` builds and
# runs the main job. Both install missing Debian packages first (apt-get, as root).
BUILD_DIR ?= build
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_FLAGS ?=

TEST_PACKAGES = cmake make g++ pkg-config libgtest-dev libgmock-dev libcli11-dev libpng-dev \
                pybind11-dev python3-dev python3-numpy python3-pytest

# The main job: a LIC picture of the built-in dipole field, coloured by the field's magnitude,
# the LIC texture giving the lightness, with relief shading along the flow.
MUSKEIP = $(BUILD_DIR)/tools/muskeip
DEMO_ARGS ?= dipole --size 1024x1024 --length 25 --colour magnitude --colormap hue --emboss

.PHONY: all build test deps-test demo bench bench-python clean

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

clean:
	rm -rf $(BUILD_DIR)
