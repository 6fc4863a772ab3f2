# Everything a fresh Debian machine needs: `make demo` and `make test`.
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
PACKAGES   := cmake make g++ pkg-config libopencv-dev googletest libgtest-dev libbenchmark-dev
SUDO       := $(shell [ "$$(id -u)" -eq 0 ] || echo sudo)
DEMO_DIR   := $(BUILD)/demo
# Photographs for the no-code set: scikit-image's sample images, unpacked from the Debian package
# without installing it (nothing of its Python code is used).
PHOTOS     := $(BUILD)/photos

.PHONY: all deps configure build asan test test-arm demo bench accuracy fuzz photos format clean

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

test: build asan photos
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)

# Cross-builds for aarch64 and armhf against Debian's own OpenCV and runs every test under qemu-user.
test-arm: deps
	JOBS=$(JOBS) scripts/test-arm.sh aarch64 armhf

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

bench: build
	$(BUILD)/bench/qbcode_bench --benchmark_min_time=0.2

# The full accuracy suite: table, CSV, plot and kept failures under $(BUILD)/accuracy.
accuracy: build photos
	$(BUILD)/tests/accuracy/qbcode_accuracy --photos $(PHOTOS) --out $(BUILD)/accuracy

# Open-ended fuzzing with libFuzzer (clang); FUZZ_SECONDS per target.
FUZZ_SECONDS ?= 60
fuzz: deps
	@command -v clang++ >/dev/null || $(SUDO) apt-get install -y -qq clang
	CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DQBCODE_SANITIZE=ON -DQBCODE_LIBFUZZER=ON -DQBCODE_BUILD_BENCH=OFF -DQBCODE_BUILD_TESTS=OFF
	cmake --build build-fuzz -j $(JOBS) --target fuzz_recognition fuzz_params
	mkdir -p build-fuzz/corpus/recognition build-fuzz/corpus/params
	cd build-fuzz && ./fuzz/fuzz_recognition -max_total_time=$(FUZZ_SECONDS) corpus/recognition
	cd build-fuzz && ./fuzz/fuzz_params -max_total_time=$(FUZZ_SECONDS) corpus/params

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h' '*.c')

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
