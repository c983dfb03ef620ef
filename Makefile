# Quick start: `make run` and `make test`. Both install what is missing from Debian's packages first.
JOBS ?= $(shell nproc)
GEN := $(shell command -v ninja >/dev/null 2>&1 && echo "-G Ninja")

.PHONY: run test deps deps-bench deps-fuzz build-release build-test asan tsan bench fuzz clean

run: deps build-release
	BUILD=build-release scripts/run.sh

test: deps build-test
	cd build && ctest --output-on-failure -j $(JOBS)

deps:
	@scripts/install-deps.sh

# The benchmarks compare with OpenCV where it is installed; only they pull it in.
deps-bench:
	@scripts/install-deps.sh --bench

# The fuzzers need clang: libFuzzer and its sanitizers come with it.
deps-fuzz:
	@scripts/install-deps.sh --fuzz

build-release:
	cmake -S . -B build-release $(GEN) -DCMAKE_BUILD_TYPE=Release -DVM_BUILD_TESTS=OFF -DVM_BUILD_BENCH=OFF
	cmake --build build-release -j $(JOBS)

build-test:
	cmake -S . -B build $(GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVM_BUILD_BENCH=OFF -DVM_WERROR=ON
	cmake --build build -j $(JOBS)

# Every test under AddressSanitizer and UndefinedBehaviorSanitizer.
asan: deps
	cmake -S . -B build-asan $(GEN) -DCMAKE_BUILD_TYPE=Debug -DVM_SANITIZE=ON -DVM_BUILD_BENCH=OFF
	cmake --build build-asan -j $(JOBS)
	cd build-asan && ASAN_OPTIONS=detect_leaks=1 ctest --output-on-failure -j $(JOBS)

tsan: deps
	cmake -S . -B build-tsan $(GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVM_TSAN=ON -DVM_BUILD_BENCH=OFF -DVM_BUILD_SHELL=OFF
	cmake --build build-tsan -j $(JOBS)
	cd build-tsan && ctest --output-on-failure -j $(JOBS)

# Every reader of outside data under libFuzzer with AddressSanitizer and UndefinedBehaviorSanitizer, one fuzzer
# after another for FUZZ_SECONDS each, seeded from tests/data. See docs/fuzzing.md.
FUZZ_SECONDS ?= 60
fuzz: deps-fuzz
	cmake -S . -B build-fuzz $(GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ -DVM_FUZZ=ON \
	  -DVM_BUILD_TESTS=OFF -DVM_BUILD_BENCH=OFF -DVM_BUILD_SHELL=OFF
	cmake --build build-fuzz -j $(JOBS) --target vm_fuzzers
	FUZZ_SECONDS=$(FUZZ_SECONDS) scripts/fuzz.sh build-fuzz

bench: deps-bench
	cmake -S . -B build-bench $(GEN) -DCMAKE_BUILD_TYPE=Release -DVM_BUILD_TESTS=OFF
	cmake --build build-bench -j $(JOBS)
	@echo "Benchmarks are in build-bench/bench/: run each bench_* program."

clean:
	rm -rf build build-release build-asan build-tsan build-bench build-fuzz
