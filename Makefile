# What developers need besides ./run and ./test.
PREFIX ?= /usr/local
TICKS ?= 200000
SOURCES = $(shell git ls-files '*.cpp' '*.h' '*.mm')

.PHONY: valgrind fuzz format check-format tidy bench accuracy soak docs install package

format:
	@cmake/bootstrap ci
	clang-format -i $(SOURCES)

check-format:
	@cmake/bootstrap ci
	clang-format --dry-run --Werror $(SOURCES)

bench:
	@cmake/bootstrap bench
	@cmake/build bench
	@for program in build/bench/benchmarks/*Benchmark; do \
	  echo "== $$(basename $$program)"; $$program || exit 1; done

# Replays Traces/ and compares with its limits; WRITE=1 makes today's figures the limits.
accuracy:
	@cmake/bootstrap test
	@cmake/build dev --target accuracy
	build/dev/benchmarks/accuracy Traces $(if $(WRITE),--write) $(if $(HTML),--html $(HTML))

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
	@cmake/build dev --target wakelatch_tests
	valgrind --quiet --leak-check=full --errors-for-leak-kinds=definite --error-exitcode=9 \
	  build/dev/Tests/wakelatch_tests --gtest_brief=1 \
	  --gtest_filter='-Host.*:CrashMatrix.*:Caffeinate.*:Fault*:Schema*:CommandRunner.*:ChildProcess.*:SleepController.*:KeepAwake.*'

# Most of clang-tidy's time goes into the system's headers, so it reads a build that compiles eight
# files as one: a fifth of the time. What it finds in a file's own lines alone is found with
# BUILD=clang-libcxx, file by file: using-declarations of no use; with CHECKS=clang-analyzer-*, which
# takes minutes, what clang's analyzer guesses. CHECKS adds to or takes from .clang-tidy's.
tidy: BUILD ?= asan
tidy:
	@cmake/bootstrap ci
	@cmake/build $(BUILD)
	run-clang-tidy -quiet $(if $(CHECKS),-checks='$(CHECKS)') -p build/$(BUILD) \
	  "$$PWD/((Platform|WakelatchCore|Host|Tests|Examples|Fuzz)/|build/$(BUILD)/.*/Unity/)"

# Without glibc's caches of freed memory, which count as in use, the heap's figures are exact.
soak:
	@cmake/bootstrap test
	@cmake/build dev --target soak
	GLIBC_TUNABLES=glibc.malloc.tcache_count=0 build/dev/benchmarks/soak $(TICKS)

# Each target for SECONDS, two at a time.
fuzz: SECONDS ?= 60
fuzz:
	@cmake/bootstrap ci
	@cmake/build asan --target fuzz
	@Fuzz/run $(SECONDS) $(SEED)

# build/package/*.deb, the same to the last byte for a commit and a compiler.
package:
	@cmake/bootstrap package
	cmake --preset package
	umask 022; SOURCE_DATE_EPOCH=$$(git log -1 --format=%ct) cmake --build --preset package
endif
