# The two commands of the README, and the rest. Every target installs what is missing first.
JOBS       ?= $(shell nproc)
BUILD      ?= build
ASAN_BUILD ?= build-asan
BENCH_BUILD?= build-bench
FUZZ_BUILD ?= build-fuzz
PREFIX     ?= /usr/local
# make install puts the appliance's own programs (/bin/get_key_value, /sbin/sfdisk ...) into
# this appliance root; empty: they are not installed.
APPLIANCE_ROOT ?=
DEB_OUT    ?= $(BUILD)/deb
FUZZ_SECONDS ?= 20
# A hanging test fails after this many seconds instead of eating the CI budget.
TEST_TIMEOUT ?= 300
GENERATOR  := -G Ninja

.PHONY: all deps build build-asan test test-normal test-asan test-i386 test-s390x test-cross \
        test-vm vm-shell demo bench fuzz install deb deb-check format format-check clean

all: build

deps:
	@scripts/install-deps

build: deps
	cmake -S . -B $(BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j $(JOBS)

build-asan: deps
	cmake -S . -B $(ASAN_BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug -DKOVA_SANITIZE=ON
	cmake --build $(ASAN_BUILD) -j $(JOBS)

test-normal: build
	ctest --test-dir $(BUILD) -j $(JOBS) --output-on-failure --timeout $(TEST_TIMEOUT)

# Leak detection on; any sanitizer report fails the test that caused it.
test-asan: build-asan
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:halt_on_error=1 \
	UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	ctest --test-dir $(ASAN_BUILD) -j $(JOBS) --output-on-failure --timeout $(TEST_TIMEOUT)

test: test-normal test-asan format-check

# The storage tests that need a real kernel, in a qemu guest (scripts/vm/run; settings VM_DISKS,
# VM_DISK_SIZE, VM_FILTER, VM_TIMEOUT, VM_ACCEL are read from the environment).
test-vm: build
	scripts/vm/run $(BUILD)

vm-shell: build
	scripts/vm/run --shell $(BUILD)

# The suite on the appliance's word size (i386: 4-byte pointers, run natively) and byte order
# (s390x: big-endian, run under qemu). No sanitizers there: the native ASan build covers memory.
# A test that hangs fails after CROSS_TEST_TIMEOUT seconds instead of holding up CI.
CROSS_TEST_TIMEOUT ?= 300
test-i386 test-s390x: test-%: deps
	@scripts/install-cross-deps $*
	cmake -S . -B build-$* $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	      -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-$*.cmake
	cmake --build build-$* -j $(JOBS)
	ctest --test-dir build-$* -j $(JOBS) --output-on-failure --timeout $(CROSS_TEST_TIMEOUT)

test-cross: test-i386 test-s390x

demo: build
	scripts/demo $(BUILD)

bench: deps
	cmake -S . -B $(BENCH_BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=Release -DKOVA_BUILD_TESTS=OFF -DKOVA_BUILD_BENCH=ON
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	scripts/run-benchmarks $(BENCH_BUILD)

fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKOVA_BUILD_TESTS=OFF -DKOVA_BUILD_FUZZ=ON
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	scripts/run-fuzzers $(FUZZ_BUILD) $(FUZZ_SECONDS)

# DESTDIR stages the whole install (as packaging does); the prefix is set at configure time, so
# that the installed programs find the library where it was installed.
install: deps
	cmake -S . -B $(BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	      -DCMAKE_INSTALL_PREFIX=$(PREFIX) -DKOVA_APPLIANCE_ROOT=$(APPLIANCE_ROOT)
	cmake --build $(BUILD) -j $(JOBS)
	DESTDIR="$(DESTDIR)" cmake --install $(BUILD)

# Debian packages in $(DEB_OUT) (scripts/make-deb: dpkg-buildpackage on a copy of the tree,
# then lintian); deb-check installs them into a throw-away root and runs kovactl from there.
deb: deps
	scripts/make-deb $(DEB_OUT)

deb-check: deb
	scripts/deb-smoke $(DEB_OUT)

format:
	git ls-files '*.c' '*.h' '*.cpp' | xargs clang-format -i

format-check:
	git ls-files '*.c' '*.h' '*.cpp' | xargs clang-format --dry-run --Werror

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(BENCH_BUILD) $(FUZZ_BUILD) build-i386 build-s390x demo-root
