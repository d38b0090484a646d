# The two everyday commands: `make run` and `make test`. Both install what is missing first.
PRESET ?= default
BUILD := build/$(PRESET)
FUZZ_SECONDS ?= 600

.PHONY: all deps configure build run test package bench fuzz tsan asan format clean

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake --preset $(PRESET) >/dev/null

build: configure
	@cmake --build $(BUILD)

# The desktop app when there is a display to show it on, else the listener alone.
run: build
	@if [ -n "$$DISPLAY$$WAYLAND_DISPLAY" ]; then exec $(BUILD)/app/norrow; \
	elif [ -d $(BUILD)/app/Norrow.app ]; then exec $(BUILD)/app/Norrow.app/Contents/MacOS/Norrow; \
	else echo "make run: no display, so running the listener alone (norrowctl serve)"; exec $(BUILD)/cli/norrowctl serve; fi

test: build
	@ctest --preset $(PRESET) -j2

# The Debian package (on macOS a disk image with the app), checked with lintian where there is one.
package: build
	@cmake --build $(BUILD) --target package
	@if command -v lintian >/dev/null 2>&1; then lintian --fail-on error $(BUILD)/norrow_*.deb; fi

asan:
	@$(MAKE) test PRESET=asan

tsan:
	@$(MAKE) test PRESET=tsan

bench: build
	@bench/run-all

fuzz: deps
	@cmake --preset fuzz >/dev/null
	@cmake --build build/fuzz
	@fuzz/run $(FUZZ_SECONDS)

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf build
