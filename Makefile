# The project's two set-up commands (make run, make test) and make bench.
# Each installs what is missing first (scripts/install-deps.sh).
BUILD ?= build
JOBS ?= $(shell nproc)

.PHONY: deps configure build test run bench soak clean format

deps:
	@scripts/install-deps.sh --browser
	@[ -d tests/browser/node_modules/playwright-core ] || \
	  (cd tests/browser && npm ci --no-audit --no-fund --loglevel=error)

configure: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

run: build
	@scripts/run.sh $(BUILD)

bench: deps
	@scripts/install-deps.sh --bench
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	@cmake --build $(BUILD) -j $(JOBS) --target all log_bench
	@scripts/bench.sh $(BUILD)

soak: configure
	@cmake --build $(BUILD) -j $(JOBS) --target all quor-soak
	@scripts/soak.sh $(BUILD)

format:
	@clang-format -i $$(git ls-files '*.cc' '*.h')

clean:
	@rm -rf $(BUILD)
