# The two commands of the README, and what developers need besides.
ARGS ?= watch
PREFIX ?= /usr/local
TICKS ?= 200000
SOURCES = $(shell git ls-files '*.cpp' '*.h' '*.mm')

.PHONY: run test valgrind fuzz format check-format tidy bench accuracy soak docs install \
  package

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

bench:
	@cmake/bootstrap bench
	cmake --preset bench
	cmake --build --preset bench
	@for program in build/bench/benchmarks/*Benchmark; do \
	  echo "== $$(basename $$program)"; $$program || exit 1; done

# Replays Traces/ and compares with its limits; WRITE=1 makes today's figures the limits.
accuracy:
	@cmake/bootstrap bench
	cmake --preset bench
	cmake --build --preset bench --target accuracy
	build/bench/benchmarks/accuracy Traces $(if $(WRITE),--write) $(if $(HTML),--html $(HTML))

docs:
	@cmake/bootstrap docs
	@mkdir -p build/docs
	doxygen docs/Doxyfile

install:
	@cmake/bootstrap run
	cmake --preset release -DCMAKE_INSTALL_PREFIX:PATH="$(PREFIX)"
	cmake --build --preset release
	cmake --install build/release

ifeq ($(shell uname),Darwin)
valgrind tidy soak fuzz package:
	@echo "make $@ does nothing on macOS: Xcode has neither clang-tidy nor libFuzzer, and there is no"; \
	echo "valgrind, no dpkg and no /proc. Run it on Debian."
else
# All tests but those about other processes: valgrind's stand-in for starting a child cannot fail
# and has no exit notices, and what a child does it does not see.
valgrind:
	@cmake/bootstrap ci
	cmake --preset dev
	cmake --build --preset dev --target wakelatch_tests
	valgrind --quiet --leak-check=full --errors-for-leak-kinds=definite --error-exitcode=9 \
	  build/dev/Tests/wakelatch_tests --gtest_brief=1 \
	  --gtest_filter='-Host.*:CrashMatrix.*:Caffeinate.*:Fault*:Schema*:CommandRunner.*:ChildProcess.*:SleepController.*:KeepAwake.*'

tidy:
	@cmake/bootstrap ci
	cmake --preset tidy
	cmake --build --preset tidy

# Without glibc's caches of freed memory, which count as in use, the heap's figures are exact.
soak:
	@cmake/bootstrap bench
	cmake --preset bench
	cmake --build --preset bench --target soak
	GLIBC_TUNABLES=glibc.malloc.tcache_count=0 build/bench/benchmarks/soak $(TICKS)

# Each target for SECONDS, two at a time.
fuzz: SECONDS ?= 60
fuzz:
	@cmake/bootstrap ci
	cmake --preset fuzz
	cmake --build --preset fuzz
	@Fuzz/run $(SECONDS) $(SEED)

# build/package/*.deb, the same to the last byte for a commit and a compiler.
package:
	@cmake/bootstrap package
	cmake --preset package
	umask 022; SOURCE_DATE_EPOCH=$$(git log -1 --format=%ct) cmake --build --preset package
endif
