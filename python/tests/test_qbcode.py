"""The qbcode module on rendered codes: numpy in and out, statuses, payloads, the GIL."""
import os
import threading
import time

import numpy as np
import pytest

import qbcode

PAYLOAD = bytes.fromhex("c0ffee5eedba5eba11")


@pytest.fixture(scope="module")
def code():
    return qbcode.render(payload=PAYLOAD, rotation=23, spacing=20)


def test_read_returns_the_payload_it_was_rendered_with(code):
    assert code.dtype == np.uint8 and code.shape == (480, 640)
    r = qbcode.read(code)
    assert r and r.status == 0 and r.name == "ok"
    assert r.payload == PAYLOAD
    assert len(r.bits) == 91
    x, y, w, h = r.box
    assert x < 320 < x + w and y < 240 < y + h
    assert len(r.corners) == 6 and r.checks["verified"] and r.timings["total"] > 0


def test_colour_reads_like_grey_and_a_strided_view_reads(code):
    colour = np.dstack([code, code, code])
    assert qbcode.read(colour).bits == qbcode.read(code).bits
    wide = np.zeros((480, 700), np.uint8)
    wide[:, :640] = code
    assert qbcode.read(wide[:, :640]).payload == PAYLOAD


@pytest.mark.parametrize("image, error", [
    (np.zeros((48, 64), np.float32), TypeError),
    (np.zeros(64, np.uint8), ValueError),
    (np.zeros((48, 64, 2), np.uint8), ValueError),
])
def test_wrong_arrays_raise(image, error):
    with pytest.raises(error):
        qbcode.read(image)


def test_failures_come_back_as_statuses():
    blank = np.full((480, 640), 30, np.uint8)
    r = qbcode.read(blank)
    assert not r and r.status < 0 and r.name != "ok" and r.payload == b""
    assert qbcode.read_all(blank) == []
    missing = qbcode.read(blank, params="/nonexistent/params.yml")
    assert missing.status == -600 and missing.name == qbcode.status_name(-600)


def test_read_all_and_an_explicit_parameter_file(code):
    found = qbcode.read_all(code, params=os.environ["QBCODE_TEST_PARAMS"])
    assert [r.payload for r in found] == [PAYLOAD]


def test_render_from_bits_int_payload_and_camera():
    bits = qbcode.read(qbcode.render(payload=PAYLOAD)).bits
    assert np.array_equal(qbcode.render(bits=bits), qbcode.render(payload=PAYLOAD))
    assert np.array_equal(qbcode.render(payload=int.from_bytes(PAYLOAD, "little")),
                          qbcode.render(payload=PAYLOAD))
    assert qbcode.render(payload=PAYLOAD, camera=True, size=(320, 240)).shape == (240, 320)
    for bad in [dict(), dict(bits=[1, 0]), dict(payload=b"\xff" * 10), dict(payload=-1)]:
        with pytest.raises(ValueError):
            qbcode.render(**bad)


def test_grade_scores_a_clean_print(code):
    g = qbcode.grade(code)
    assert g["status"] == 0 and g["rating"]
    assert 0 < g["total"] <= g["max_total"]


def test_reads_release_the_interpreter(code):
    big = np.zeros((960, 1280), np.uint8)
    big[240:720, 320:960] = code
    start = time.perf_counter()
    qbcode.read(big)
    alone = time.perf_counter() - start
    gaps, done = [], threading.Event()
    reader = threading.Thread(target=lambda: (qbcode.read(big), done.set()))
    last = time.perf_counter()
    reader.start()
    while not done.is_set():
        now = time.perf_counter()
        gaps.append(now - last)
        last = now
    reader.join()
    # Held through the read, the lock would stall this loop for the whole read.
    assert max(gaps) < 0.5 * alone, (max(gaps), alone)


def test_reader_handle_reads_many_frames_both_polarities_and_after_a_failure(code):
    reader = qbcode.Reader(params=os.environ["QBCODE_TEST_PARAMS"])
    assert reader.status == 0
    blank = np.full((480, 640), 30, np.uint8)
    for frame in [code, blank, 255 - code, code]:
        r = reader.read(frame)
        assert (r.payload == PAYLOAD) == (frame is not blank)
    assert [r.payload for r in reader.read_all(code)] == [PAYLOAD]
    assert reader.read(code).bits == reader.read_all(code)[0].bits
    with open(os.environ["QBCODE_TEST_PARAMS"]) as f:
        assert qbcode.Reader(yaml=f.read()).read(code).payload == PAYLOAD
    assert qbcode.Reader(params="/nonexistent/params.yml").status == -600
    with pytest.raises(ValueError):
        qbcode.Reader(params="a.yml", yaml="b")


def test_every_function_and_result_field_is_documented_and_stubbed():
    stub = open(os.path.join(os.path.dirname(__file__), "..", "qbcode.pyi")).read()
    for name in ["read", "read_all", "render", "grade", "status_name", "Reader", "Result"]:
        assert getattr(qbcode, name).__doc__, name
        assert ("def " + name + "(" in stub) or ("class " + name + ":" in stub), name
    for cls in (qbcode.Result, qbcode.Reader):
        for field, value in vars(cls).items():
            if not field.startswith("_"):
                assert value.__doc__, cls.__name__ + "." + field
                assert "def " + field + "(" in stub, cls.__name__ + "." + field


def test_reader_handle_reads_a_clip_frame_by_frame(tmp_path):
    cv2 = pytest.importorskip("cv2")
    import clip
    path = str(tmp_path / "clip.avi")
    clip.write(path)
    capture, reader, seen = cv2.VideoCapture(path), qbcode.Reader(), {}
    index = 0
    while True:
        ok, frame = capture.read()
        if not ok:
            break
        for r in reader.read_all(frame):
            seen.setdefault(r.payload, []).append(index)
        index += 1
    assert index == 56
    in_view = {clip.A: {f for f in range(56) if any(c[0] == clip.A for c in clip.codes_in(f, 56))},
               clip.B: {f for f in range(56) if f >= 28}}
    assert set(seen) == {clip.A, clip.B}
    for payload, frames in seen.items():
        assert set(frames) <= in_view[payload]
    assert len(seen[clip.A]) >= 30 and len(seen[clip.B]) >= 20
