# The two commands of the README, and what developers need besides.
ARGS ?= watch
SOURCES = $(shell git ls-files '*.cpp' '*.h' '*.mm')

.PHONY: run test format check-format tidy bench install

run:
	@cmake/bootstrap run
	@mkdir -p build
	@{ cmake --preset release && cmake --build --preset release; } >build/run.log 2>&1 \
	  || { cat build/run.log; exit 1; }
	@exec build/release/Host/wakelatch $(ARGS)

test:
	@cmake/bootstrap test
	cmake --preset dev
	cmake --build --preset dev
	ctest --preset dev

format:
	@cmake/bootstrap ci
	clang-format -i $(SOURCES)

check-format:
	@cmake/bootstrap ci
	clang-format --dry-run --Werror $(SOURCES)

tidy:
	@cmake/bootstrap ci
	cmake --preset tidy
	cmake --build --preset tidy

bench:
	@cmake/bootstrap bench
	cmake --preset bench
	cmake --build --preset bench
	@for program in build/bench/benchmarks/*Benchmark; do \
	  echo "== $$(basename $$program)"; $$program || exit 1; done

install:
	@cmake/bootstrap run
	cmake --preset release
	cmake --build --preset release
	cmake --install build/release
