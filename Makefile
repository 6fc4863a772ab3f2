# Everything a fresh Debian machine needs: `make demo` and `make test`.
BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
PACKAGES   := cmake make g++ pkg-config libopencv-dev googletest libgtest-dev libbenchmark-dev \
              pybind11-dev python3-dev python3-numpy python3-pytest python3-opencv dpkg-dev
# Only the benchmark's anchors use these; it builds them when found, nothing else needs them.
ANCHOR_PACKAGES := libzxing-dev libapriltag-dev python3-zxing-cpp
SUDO       := $(shell [ "$$(id -u)" -eq 0 ] || echo sudo)
DEMO_DIR   := $(BUILD)/demo
# Photographs for the no-code set: scikit-image's sample images, unpacked from the Debian package
# without installing it (nothing of its Python code is used).
PHOTOS     := $(BUILD)/photos

.PHONY: all deps anchor-deps configure build asan tsan test test-arm deb demo bench cost accuracy fuzz photos format clean

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
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DQBCODE_PHOTOS_DIR=$(CURDIR)/$(PHOTOS)

$(ASAN_BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQBCODE_SANITIZE=ON -DQBCODE_BUILD_BENCH=OFF

configure: $(BUILD)/CMakeCache.txt

build: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

asan: deps $(ASAN_BUILD)/CMakeCache.txt
	cmake --build $(ASAN_BUILD) -j $(JOBS)

# ThreadSanitizer: only the concurrency and leak tests are built and run.
$(TSAN_BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQBCODE_SANITIZE_THREAD=ON \
	  -DQBCODE_BUILD_BENCH=OFF -DQBCODE_BUILD_FUZZ=OFF

tsan: deps $(TSAN_BUILD)/CMakeCache.txt
	cmake --build $(TSAN_BUILD) -j $(JOBS) --target qbcode_stress_tests

photos:
	@if [ ! -f $(PHOTOS)/.done ]; then \
	  deb=$(CURDIR)/$(BUILD)/photos-deb; rm -rf $(PHOTOS) $$deb; mkdir -p $(PHOTOS) $$deb; \
	  if (cd $$deb && apt-get download python3-skimage) >/dev/null 2>&1 || \
	     ($(SUDO) apt-get update -qq && cd $$deb && apt-get download python3-skimage) >/dev/null 2>&1; then \
	    dpkg -x $$deb/python3-skimage_*.deb $$deb/x; \
	    for f in astronaut camera coffee chelsea coins hubble_deep_field moon rocket horse \
	             motorcycle_left motorcycle_right retina page text brick grass gravel; do \
	      cp $$deb/x/usr/lib/python3/dist-packages/skimage/data/$$f.* $(PHOTOS)/ 2>/dev/null || true; \
	    done; \
	    touch $(PHOTOS)/.done; echo "photographs for the no-code set: $$(ls $(PHOTOS) | wc -l)"; \
	  else \
	    echo "python3-skimage not reachable: the no-code set uses synthetic images only"; \
	  fi; \
	  rm -rf $$deb; \
	fi

test: build asan tsan photos
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)
	cd $(TSAN_BUILD) && ctest --output-on-failure -L stress

# Cross-builds for aarch64 and armhf against Debian's own OpenCV and runs every test under qemu-user.
test-arm: deps
	JOBS=$(JOBS) scripts/test-arm.sh aarch64 armhf

# Debian packages (library, -dev, qbcode-tools, python3-qbcode) in build-deb/, for /usr.
deb: deps
	cmake -S . -B build-deb -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
	  -DQBCODE_BUILD_TESTS=OFF -DQBCODE_BUILD_BENCH=OFF -DQBCODE_BUILD_FUZZ=OFF
	cmake --build build-deb -j $(JOBS)
	cd build-deb && cpack -G DEB

# Renders a camera-like code with a known payload, reads it back and writes the overlay.
DEMO_PAYLOAD := c0ffee5eedba5eba11
demo: build
	@mkdir -p $(DEMO_DIR)
	@sed -e 's/^   imwriteOverlay:.*/   imwriteOverlay: 1/' \
	     -e 's|^   savePath: .*|   savePath: "$(CURDIR)/$(DEMO_DIR)/"|' \
	     SystemParameter/Config/algorithm_parameters_v01.yml > $(DEMO_DIR)/params.yml
	@$(BUILD)/tools/qbcode version
	$(BUILD)/tools/qbcode render --payload-hex $(DEMO_PAYLOAD) --camera --rotation 37 \
	  --spacing 22 --dot 13 --blur 0.8 --noise 3 --seed 7 -o $(DEMO_DIR)/code.png
	@echo "payload written: $(DEMO_PAYLOAD)"
	$(BUILD)/tools/qbcode read $(DEMO_DIR)/code.png --params $(DEMO_DIR)/params.yml
	@echo "overlay: $(DEMO_DIR)/_ori_result.bmp.jpg (grey) and $(DEMO_DIR)/_bin_result.bmp.jpg (binary)"

# Best effort: without them the benchmark runs without its anchors.
anchor-deps:
	@missing=""; \
	for p in $(ANCHOR_PACKAGES); do dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then \
	  echo "installing for the anchors:$$missing"; \
	  ($(SUDO) apt-get update -qq && \
	   DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq $$missing) || \
	  echo "anchor libraries not installed: the benchmark runs without them"; \
	fi

bench: anchor-deps build
	cmake $(BUILD) >/dev/null && cmake --build $(BUILD) -j $(JOBS) --target qbcode_bench
	$(BUILD)/bench/qbcode_bench --benchmark_min_time=0.2

# Instructions per read under callgrind and the heap of a read under massif: figures that do not
# depend on the machine's load (docs/performance.md).
cost: anchor-deps build photos
	@command -v valgrind >/dev/null || $(SUDO) apt-get install -y -qq valgrind
	cmake $(BUILD) >/dev/null && cmake --build $(BUILD) -j $(JOBS) --target qbcode_read_cost
	scripts/read_cost.sh $(BUILD)

# The full accuracy suite: table, CSV, plot and kept failures under $(BUILD)/accuracy.
accuracy: build photos
	$(BUILD)/tests/accuracy/qbcode_accuracy --photos $(PHOTOS) --out $(BUILD)/accuracy

# Open-ended fuzzing with libFuzzer (clang): FUZZ_SECONDS per target, one target after the other
# on one core (e.g. make fuzz FUZZ_TARGETS=params FUZZ_SECONDS=1800). Each starts from its seeds
# in fuzz/seeds; a fault's input lands in build-fuzz/artifacts, to be kept in fuzz/regressions.
# The share of the grown corpus that decodes is printed after each target.
FUZZ_SECONDS ?= 60
FUZZ_TARGETS ?= recognition params grade reader
fuzz: deps
	@command -v clang++ >/dev/null || $(SUDO) apt-get install -y -qq clang
	CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DQBCODE_SANITIZE=ON -DQBCODE_LIBFUZZER=ON -DQBCODE_BUILD_BENCH=OFF -DQBCODE_BUILD_TESTS=OFF
	cmake --build build-fuzz -j $(JOBS) --target $(addprefix fuzz_,$(FUZZ_TARGETS)) \
	  $(addsuffix _replay,$(addprefix fuzz_,$(FUZZ_TARGETS)))
	@for t in $(FUZZ_TARGETS); do \
	  mkdir -p build-fuzz/corpus/$$t build-fuzz/artifacts; \
	  dict=""; [ -f fuzz/$$t.dict ] && dict="-dict=$(CURDIR)/fuzz/$$t.dict"; \
	  echo "fuzzing $$t for $(FUZZ_SECONDS) s"; \
	  (cd build-fuzz && OPENCV_FOR_THREADS_NUM=1 nice ./fuzz/fuzz_$$t \
	    -max_total_time=$(FUZZ_SECONDS) -rss_limit_mb=4096 -timeout=20 -close_fd_mask=1 -print_final_stats=1 $$dict \
	    -artifact_prefix=artifacts/$$t- corpus/$$t $(CURDIR)/fuzz/seeds/$$t) || exit 1; \
	  echo "corpus of $$t:"; find build-fuzz/corpus/$$t -type f | \
	    xargs build-fuzz/fuzz/fuzz_$${t}_replay --iterations=0 | grep "files,"; \
	done

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h' '*.c')

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD)
