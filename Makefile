# The project's two set-up commands (make run, make test) and make bench.
# Each installs what is missing first (scripts/install-deps.sh).
BUILD ?= build
JOBS ?= $(shell nproc)
MAKEFLAGS += --no-print-directory

.PHONY: run-deps test-deps configure-run configure-test test run bench soak fuzz clean format

# Running needs the compiler, the libraries and curl (for the pinned SQLite); testing also
# GoogleTest, Chromium and Node.js with the browser tests' npm packages.
run-deps:
	@scripts/install-deps.sh

test-deps:
	@scripts/install-deps.sh --test --browser
	@[ -d tests/browser/node_modules/playwright-core ] || \
	  (cd tests/browser && npm ci --no-audit --no-fund --loglevel=error)

configure-run: run-deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUOR_TESTS=OFF >/dev/null

configure-test: test-deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUOR_TESTS=ON >/dev/null

test: configure-test
	@scripts/check-format.sh
	@cmake --build $(BUILD) -j $(JOBS)
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# Only the server, the modules, the log writer and the demo-data tool.
run: configure-run
	@cmake --build $(BUILD) -j $(JOBS) --target quor-webapi quor-logdemo quor-logd
	@scripts/run.sh $(BUILD)

bench: test-deps
	@scripts/install-deps.sh --bench
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUOR_TESTS=ON >/dev/null
	@cmake --build $(BUILD) -j $(JOBS) --target all log_bench
	@scripts/bench.sh $(BUILD)

soak: configure-run
	@cmake --build $(BUILD) -j $(JOBS) --target quor-webapi quor-logdemo quor-soak quor-logd
	@scripts/soak.sh $(BUILD)

# Every libFuzzer target (fuzz/*_fuzz.cc) for FUZZ_SECONDS each, from its seed corpus, built
# with clang and the address and undefined-behaviour sanitizers in their own build folder.
FUZZ_SECONDS ?= 60
FUZZ_BUILD ?= build-fuzz
fuzz:
	@scripts/install-deps.sh --fuzz
	@cmake -S . -B $(FUZZ_BUILD) -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUOR_TESTS=OFF -DQUOR_FUZZ=ON >/dev/null
	@cmake --build $(FUZZ_BUILD) -j $(JOBS) --target fuzz_targets
	@fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

format:
	@clang-format -i $$(git ls-files '*.cc' '*.h' '*.c')

clean:
	@rm -rf $(BUILD)
