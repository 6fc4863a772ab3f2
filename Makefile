# Everything a fresh Debian machine needs: `make demo` and `make test`.
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
PACKAGES   := cmake make g++ pkg-config libopencv-dev googletest libgtest-dev libbenchmark-dev
SUDO       := $(shell [ "$$(id -u)" -eq 0 ] || echo sudo)
DEMO_DIR   := $(BUILD)/demo

.PHONY: all deps configure build asan test demo bench accuracy format clean

all: build

deps:
	@missing=""; \
	for p in $(PACKAGES); do dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  $(SUDO) apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq $$missing; \
	fi

$(BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release

$(ASAN_BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQBCODE_SANITIZE=ON -DQBCODE_BUILD_BENCH=OFF

configure: $(BUILD)/CMakeCache.txt

build: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

asan: deps $(ASAN_BUILD)/CMakeCache.txt
	cmake --build $(ASAN_BUILD) -j $(JOBS) --target qbcode_tests

test: build asan
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)

demo: build
	@mkdir -p $(DEMO_DIR)
	$(BUILD)/tools/qbcode version
	$(BUILD)/tools/qbcode dots 5

bench: build
	$(BUILD)/bench/qbcode_bench --benchmark_min_time=0.2

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h' '*.c')

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
