# Everything a developer runs. Each target sets up what it needs: compilers and headers from Debian's packages, the
# rest from PyPI in .venv.
.DEFAULT_GOAL := help
SHELL := /bin/bash
.SHELLFLAGS := -eu -o pipefail -c

VENV := .venv
PYTHON := $(VENV)/bin/python
# The tools of the environment come first, whatever the machine has.
export PATH := $(CURDIR)/$(VENV)/bin:$(PATH)
export PYTHONPATH :=
export PYTHONDONTWRITEBYTECODE := 1

SOURCES := CMakeLists.txt pyproject.toml $(shell find cmake host include interface native python src tools -type f \
             -not -path '*/__pycache__/*' 2>/dev/null)
PYTHON_SOURCES := python tools tests examples benchmarks
# Python on pages is in shape too.
PAGES := README.md docs
NATIVE_SOURCES = $(shell git ls-files --cached --others --exclude-standard '*.h' '*.hh' '*.cc' '*.c')
RELEASE = PYTHONPATH=tools $(PYTHON) -m
RECORDER := $(CURDIR)/build/dev/tests/recorder

## help: this list
help:
	@sed -n 's/^## //p' $(MAKEFILE_LIST) | awk -F': ' '{printf "  make %-16s %s\n", $$1, $$2}'

## demo: install the package and run its first scripts on the embedded host
demo: $(VENV)/installed
	$(PYTHON) examples/first_script.py
	$(PYTHON) examples/configure_switch.py
	$(PYTHON) examples/datacentre.py
	tools/command_demo build/demo $(VENV)/bin/kestrel

## test: everything that has to hold before a change lands
test: lint tidy test-native test-module test-host test-package test-cli test-faults test-docs docs cross

## test-native: C++ tests of the embedded host
test-native: build
	ctest -j$(shell nproc) --test-dir build/dev --output-on-failure

## test-module: the boundary, argument by argument, on the recorder platform
test-module: build $(VENV)/installed
	LD_LIBRARY_PATH=$(RECORDER) PYTHONPATH=$(CURDIR)/build/dev/tests/second_module $(PYTHON) -m pytest tests/module
	LD_LIBRARY_PATH=$(RECORDER) $(PYTHON) -m pytest tests/hostile/test_runs.py

## test-host: scripts and examples on the embedded host, wrong calls in short, and the tools
test-host: $(VENV)/installed
	$(PYTHON) -m pytest tests/host tests/tools tests/hostile

## test-package: the wheel: what is in it, and that it works where it is installed
test-package: $(VENV)/lint $(VENV)/installed
	$(PYTHON) -m pytest tests/package

## test-cli: the command line, as it is installed
test-cli: $(VENV)/installed
	$(PYTHON) -m pytest tests/cli

## test-faults: memory, storage, platform and signals at fault, at FAULT_POINTS (3) points of each work, or at "all"
FAULT_POINTS ?= 3
test-faults: build $(VENV)/installed
	FAULT_POINTS=$(FAULT_POINTS) $(PYTHON) -m pytest tests/faults

## test-docs: every command and snippet of the README and the pages
test-docs: $(VENV)/test $(VENV)/installed
	$(PYTHON) -m pytest tests/docs

## docs: the pages as a site, into build/docs; warnings are errors
docs: $(VENV)/docs
	$(PYTHON) -m sphinx --quiet --fail-on-warning --keep-going --fresh-env --doctree-dir build/doctrees docs build/docs

# Suites that run on more than one build; `make test-asan SUITES=module` runs one of them.
SUITES ?= native module host package cli

## test-asan: SUITES (all, and hostile calls) under AddressSanitizer, UndefinedBehaviorSanitizer and LeakSanitizer
test-asan: SUITES += hostile
test-asan: $(VENV)/test $(VENV)/installed
	cmake --preset sanitize >build/configure-sanitize.log || { cat build/configure-sanitize.log; exit 1; }
	cmake --build --preset sanitize
	cmake --install build/sanitize >/dev/null
	for suite in $(SUITES); do tools/sanitized build/sanitize $$suite; done

## test-references: calls of everything on the debug interpreter: its count of references stays as it is
test-references: $(VENV)/memory
	cmake --preset debug-python >build/configure-debug.log || { cat build/configure-debug.log; exit 1; }
	cmake --build --preset debug-python
	cmake --install build/debug-python >/dev/null
	tools/counted build/debug-python module tests/module/test_leaks.py
	tools/counted build/debug-python package tests/package/test_records_leaks.py

## test-memcheck: the demo under valgrind
test-memcheck: $(VENV)/memory $(VENV)/installed
	tools/memcheck_demo build/memcheck $(PYTHON)

## coverage: lines and branches that run under the tests, folder by folder, and that they are enough
coverage: $(VENV)/coverage $(VENV)/test $(VENV)/lint $(VENV)/installed
	mkdir -p build/coverage
	cmake --preset coverage >build/configure-coverage.log || { cat build/configure-coverage.log; exit 1; }
	tools/coverage build clear native module host package cli report

## fuzz: run each fuzz target for FUZZ_SECONDS (60)
FUZZ_SECONDS ?= 60
fuzz: $(VENV)/fuzz $(VENV)/installed
	tools/fuzz $(FUZZ_SECONDS)

## hostile: HOSTILE_CALLS (5000000) wrong calls of the flat module, and as many of the package; HOSTILE_SEED repeats some
HOSTILE_CALLS ?= 5000000
HOSTILE_SEED ?=
hostile: $(VENV)/test $(VENV)/installed
	PYTHONPATH=$(CURDIR)/tests $(PYTHON) -m hostile.run flat $(HOSTILE_CALLS) $(HOSTILE_SEED)
	PYTHONPATH=$(CURDIR)/tests $(PYTHON) -m hostile.run package $(HOSTILE_CALLS) $(HOSTILE_SEED)

## build: configure and build the dev preset, with tests and the recorder
build: $(VENV)/test
	cmake --preset dev >build/configure.log || { cat build/configure.log; exit 1; }
	cmake --build --preset dev

## cross: compile everything for 64-bit Arm
cross: $(VENV)/test
	tools/arm64-python build/arm64-python
	cmake --preset aarch64 >build/configure-aarch64.log || { cat build/configure-aarch64.log; exit 1; }
	cmake --build --preset aarch64

## test-aarch64: SUITES (all of them) on 64-bit Arm, emulated
test-aarch64: cross $(VENV)/installed
	cmake --install build/aarch64 >/dev/null
	for suite in $(SUITES); do tools/emulated $$suite; done

# What the page and its plots are made from.
FIGURES := build/benchmarks/figures

## bench: speed and size side by side with peers, as ratios
bench: $(VENV)/bench $(VENV)/installed
	tools/openvswitch build/openvswitch
	$(PYTHON) benchmarks/boundary.py --json $(FIGURES)/boundary.json
	$(PYTHON) benchmarks/records.py --json $(FIGURES)/records.json
	$(PYTHON) benchmarks/command_line.py --json $(FIGURES)/command_line.json
	$(PYTHON) benchmarks/host_peers.py --json $(FIGURES)/host_peers.json
	cmake --preset bench >build/configure-bench.log || { cat build/configure-bench.log; exit 1; }
	cmake --build --preset bench
	build/bench/benchmarks/host/host_benchmark
	build/bench/benchmarks/host/host_file_benchmark build

## growth: cost against size, as curves with their exponents
growth: $(VENV)/bench $(VENV)/installed
	tools/openvswitch build/openvswitch
	$(PYTHON) benchmarks/growth.py --json $(FIGURES)/growth.json

## bench-page: put the figures of the last runs of bench and growth on their page, with plots
bench-page: $(VENV)/bench
	$(PYTHON) benchmarks/page.py $(FIGURES)

## reference: write anew what is derived and kept: the reference pages, scenarios, commands, Python's declarations
reference: $(VENV)/test
	PYTHONPATH=tools $(PYTHON) -m headers.reference docs/reference
	PYTHONPATH=tools $(PYTHON) -m headers.laboratory
	$(PYTHON) -m pip install --quiet --no-deps .
	$(PYTHON) tools/scenario_page.py docs/scenarios.md
	PYTHONPATH=tools $(PYTHON) -m commands.pages .

## man: the man pages of the command line, into build/man
man: $(VENV)/installed
	PYTHONPATH=tools $(PYTHON) -m commands.man_pages build/man

## lock: write requirements.lock anew from pyproject.toml; UPGRADE=--upgrade takes what is newest
lock: $(VENV)/release
	tools/lock $(UPGRADE)

## check-lock: whether requirements.lock is what `make lock` would write
check-lock: $(VENV)/release
	tools/lock --check

## wheels: a wheel for each processor of the last commit into dist, each installed and run
wheels: $(VENV)/release
	@$(RELEASE) release.wheels

## reproducible: make the wheels again, elsewhere, and compare every byte
reproducible: $(VENV)/release
	@$(RELEASE) release.reproducible

## sbom: the bill of materials of each wheel, in CycloneDX, into dist
sbom: $(VENV)/release
	@$(RELEASE) release.sbom

## deb: a Debian package of this machine's wheel into dist
deb: $(VENV)/release
	@tools/release/deb

## test-deb: install the Debian package on a bare Debian 12 in a folder, and use it there; needs root
test-deb: $(VENV)/release
	@tools/release/bare-debian

## test-oldest: the command line's tests with the oldest versions of what it requires
test-oldest: $(VENV)/test $(VENV)/installed
	tools/requirements --oldest | xargs $(PYTHON) -m pip install --quiet --no-deps --upgrade --target build/oldest
	PYTHONPATH=build/oldest $(PYTHON) -m pytest tests/cli

## test-derived: whether stubs, reference pages and man pages are what the sources say
test-derived: $(VENV)/test $(VENV)/installed
	$(PYTHON) -m pytest tests/tools tests/package/test_stubs.py tests/cli/test_pages.py

## release-check: the checklist of a release, run; LONG=1 runs the long test suites too
release-check: $(VENV)/release $(VENV)/test $(VENV)/lint $(VENV)/docs
	@$(RELEASE) release.check $(if $(LONG),--with-tests)

## stubs: write the type stubs anew from the headers
stubs: $(VENV)/test
	PYTHONPATH=tools $(PYTHON) -m headers.stubs python

## lint: formatting, static checks of Python and types; warnings are errors
lint: $(VENV)/lint $(VENV)/demo $(VENV)/test
	@clang-format --dry-run --Werror $(NATIVE_SOURCES)
	ruff format --check $(PYTHON_SOURCES) $(PAGES)
	ruff check $(PYTHON_SOURCES) $(PAGES)
	mypy $(PYTHON_SOURCES)

## tidy: static checks of C++; warnings are errors
tidy: $(VENV)/lint build
	tools/tidy build/dev

## format: bring all sources into shape
format: $(VENV)/lint
	@clang-format -i $(NATIVE_SOURCES)
	ruff format $(PYTHON_SOURCES) $(PAGES)
	ruff check --fix $(PYTHON_SOURCES) $(PAGES)

## clean: remove what was built
clean:
	rm -rf build dist

# The environment: one stamp a purpose, made anew when the pins change.
$(VENV)/%: pyproject.toml requirements.lock tools/requirements tools/setup
	tools/setup $(VENV) $*
	mkdir -p build
	touch $@

$(VENV)/installed: $(VENV)/demo $(SOURCES)
	$(PYTHON) -m pip install --quiet --no-deps .
	touch $@

.PHONY: $(shell sed -n 's/^## \([a-z0-9-]*\):.*/\1/p' Makefile)
