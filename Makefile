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
test: lint tidy test-native test-module test-host test-package test-cli test-docs docs cross

## test-native: C++ tests of the embedded host
test-native: build
	ctest -j$(shell nproc) --test-dir build/dev --output-on-failure

## test-module: the boundary, argument by argument, on the recorder platform
test-module: build $(VENV)/installed
	LD_LIBRARY_PATH=$(RECORDER) PYTHONPATH=$(CURDIR)/build/dev/tests/second_module $(PYTHON) -m pytest tests/module

## test-host: scripts and examples on the embedded host
test-host: $(VENV)/installed
	$(PYTHON) -m pytest tests/host tests/tools

## test-package: the wheel: what is in it, and that it works where it is installed
test-package: $(VENV)/lint $(VENV)/installed
	$(PYTHON) -m pytest tests/package

## test-cli: the command line, as it is installed
test-cli: $(VENV)/installed
	$(PYTHON) -m pytest tests/cli

## test-docs: every command and snippet of the README and the pages
test-docs: $(VENV)/test $(VENV)/installed
	$(PYTHON) -m pytest tests/docs

## docs: the pages as a site, into build/docs; warnings are errors
docs: $(VENV)/docs
	$(PYTHON) -m sphinx --quiet --fail-on-warning --keep-going --fresh-env --doctree-dir build/doctrees docs build/docs

## test-asan: the boundary under AddressSanitizer, UndefinedBehaviorSanitizer and LeakSanitizer
test-asan: $(VENV)/test
	cmake --preset sanitize >build/configure-sanitize.log || { cat build/configure-sanitize.log; exit 1; }
	cmake --build --preset sanitize
	cmake --install build/sanitize >/dev/null
	ctest -j$(shell nproc) --test-dir build/sanitize --output-on-failure
	tools/sanitized build/sanitize tests/module

## coverage: lines and branches that run under the tests, folder by folder, and that they are enough
coverage: $(VENV)/coverage $(VENV)/test $(VENV)/lint $(VENV)/installed
	mkdir -p build/coverage
	cmake --preset coverage >build/configure-coverage.log || { cat build/configure-coverage.log; exit 1; }
	tools/coverage build clear native module host package cli report

## fuzz: run each fuzz target for FUZZ_SECONDS (60)
FUZZ_SECONDS ?= 60
fuzz: $(VENV)/fuzz
	tools/fuzz $(FUZZ_SECONDS)

## build: configure and build the dev preset, with tests and the recorder
build: $(VENV)/test
	cmake --preset dev >build/configure.log || { cat build/configure.log; exit 1; }
	cmake --build --preset dev

## cross: compile everything for 64-bit Arm
cross: $(VENV)/test
	tools/arm64-python build/arm64-python
	cmake --preset aarch64 >build/configure-aarch64.log || { cat build/configure-aarch64.log; exit 1; }
	cmake --build --preset aarch64

## test-aarch64: the native tests, the boundary and the host's scripts on 64-bit Arm, emulated
test-aarch64: cross
	ctest -j$(shell nproc) --test-dir build/aarch64 --output-on-failure
	cmake --install build/aarch64 >/dev/null
	tools/emulated module
	tools/emulated host

## bench: speed side by side with peers, as ratios
bench: $(VENV)/bench $(VENV)/installed
	$(PYTHON) benchmarks/boundary.py
	$(PYTHON) benchmarks/records.py
	$(PYTHON) benchmarks/command_line.py
	cmake --preset bench >build/configure-bench.log || { cat build/configure-bench.log; exit 1; }
	cmake --build --preset bench
	build/bench/benchmarks/host/host_benchmark
	build/bench/benchmarks/host/host_file_benchmark build

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
$(VENV)/%: pyproject.toml tools/setup
	tools/setup $(VENV) $*
	mkdir -p build
	touch $@

$(VENV)/installed: $(VENV)/demo $(SOURCES)
	$(PYTHON) -m pip install --quiet --no-deps .
	touch $@

.PHONY: help demo coverage fuzz test test-native test-module test-asan test-host test-package test-cli test-docs docs test-aarch64 build cross bench reference man stubs lint tidy format clean
