# The front door: `make run` and `make test` work on a fresh Debian 12 and install what they need.
.DEFAULT_GOAL := help
.PHONY: help run test bench fuzz lint docs install clean packages

PRESET ?= release
BUILD := build/$(PRESET)
JOBS := $(shell nproc)

help:
	@echo "make run      build, then run the tour and say where its report lies"
	@echo "make test     build, then run every test"
	@echo "make bench    measure every family beside its peers (BENCH=dispatch for one)"
	@echo "make fuzz     fuzz the coders (FUZZ=json_decoder for one, TIME=3600 seconds each, 0 without end)"
	@echo "make lint     clang-format and clang-tidy (TIDY_BASE=REV for what changed since REV)"
	@echo "make docs     the reference, in build/docs"
	@echo "make install  install to PREFIX (default /usr/local)"
	@echo "make clean    remove what was built"

packages:
	@packaging/install-packages build $(if $(filter release,$(PRESET)),,lint)

$(BUILD)/build.ninja: CMakePresets.json | packages
	@cmake --preset $(PRESET) > build/configure.log 2>&1 || { cat build/configure.log; exit 1; }

build:
	@mkdir -p build

.PHONY: compile
compile: packages build $(BUILD)/build.ninja
	@cmake --build $(BUILD) --parallel $(JOBS)

run: packages build $(BUILD)/build.ninja
	@cmake --build $(BUILD) --parallel $(JOBS) --target tessarine_tool
	@build/bin/tessarine tour --out build/tour

test: compile
	@ctest --test-dir $(BUILD) --output-on-failure --parallel $(JOBS)

bench:
	@packaging/install-packages build bench
	@mkdir -p build
	@cmake --preset release -DTESSARINE_BENCH=ON > build/configure.log 2>&1 || { cat build/configure.log; exit 1; }
	@cmake --build build/release --parallel $(JOBS)
	@bench/run $(BENCH)

FUZZ ?= json_decoder form_decoder codable_any_hashable date_text zone_data
TIME ?= 60
fuzz:
	@packaging/install-packages build lint
	@mkdir -p build
	@cmake --preset fuzz > build/fuzz.log 2>&1 || { cat build/fuzz.log; exit 1; }
	@cmake --build build/fuzz --parallel $(JOBS) --target $(FUZZ:%=fuzz_%)
	@fuzz/run $(TIME) $(FUZZ)

lint:
	@packaging/install-packages build lint
	@cmake/lint $(TIDY_BASE)

docs:
	@packaging/install-packages build docs
	@mkdir -p build/docs && doxygen docs/Doxyfile
	@echo "build/docs/html/index.html"

PREFIX ?= /usr/local
install: compile
	@cmake --install $(BUILD) --prefix $(PREFIX)

clean:
	@rm -rf build
