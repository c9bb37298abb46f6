"""The Python binding: zero-copy views, conversions, audio converter, scheduler, errors."""
import gc
import json
import logging
import os
import pydoc
import subprocess
import sys
import threading
import wave
import weakref

import numpy as np
import pytest

import lmxcore
from lmxcore import Format, LmxError, Status

W, H = 64, 48


@pytest.fixture(scope="module")
def frame():
    """A random YUY2 frame and an image holding it."""
    yuy2 = np.random.default_rng(1).integers(0, 256, (H, W, 2), dtype=np.uint8)
    image = lmxcore.Allocator().image(W, H, Format.YUY2)
    with image.write(Format.YUY2) as planes:
        planes[...] = yuy2
    return yuy2, image


def test_views_are_the_planes_and_die_with_their_block(frame):
    yuy2, image = frame
    access = image.read(Format.YUY2)
    with access as view:
        assert view.ctypes.data == access.pointers[0]
        assert not view.flags.writeable
        np.testing.assert_array_equal(view, yuy2)
        row = view[3]  # derived views end with the block too
        plain = np.asarray(view)  # a plain array keeps the planes acquired
    assert view.shape == yuy2.shape and access.pointers == ()  # NumPy's record is left as it was
    for use in (lambda: view[0, 0], lambda: row.sum(), lambda: np.mean(row), lambda: view + 1):
        with pytest.raises(ValueError, match="block that has ended"):
            use()
    np.testing.assert_array_equal(plain[3], yuy2[3])
    with pytest.raises(LmxError, match="plain array") as error:  # a writer needs the image free of readers
        image.write(Format.YUY2).__enter__()
    assert error.value.status == Status.PARAM_UNSUPPORTED
    del plain
    with image.write(Format.YUY2) as planes:  # the plain array is gone: free again, `view` still bound
        planes[...] = yuy2


def test_conversions_match_the_tool_bit_for_bit(frame, tmp_path):
    yuy2, image = frame
    assert [p.shape for p in image.to_numpy(Format.NV12, rotate=270)] == [(W, H), (W, H // 2)]
    tool = os.path.join(os.environ.get("LMX_BIN_DIR", ""), "lmxtool")
    if not os.path.exists(tool):
        pytest.skip("lmxtool not built")
    yuy2.tofile(tmp_path / "in.yuy2")
    # The shape follows the plane layout and the rotation.
    for name, rotate, shape in [("BGRA", 0, (H, W, 4)), ("BGR", 90, (W, H, 3)), ("Y8", 270, (W, H))]:
        out = tmp_path / f"{name}{rotate}.raw"
        subprocess.run([tool, "convert", str(tmp_path / "in.yuy2"), str(out), "--from", "YUY2", "--size",
                        f"{W}x{H}", "--to", name, "--rotate", str(rotate)], check=True, capture_output=True)
        expected = np.fromfile(out, np.uint8).reshape(shape)
        np.testing.assert_array_equal(image.to_numpy(Format[name], rotate=rotate), expected)


def test_import_copies_and_adoption_keeps_the_array_alive():
    depth = np.arange(W * H, dtype=np.uint16).reshape(H, W)
    copied = lmxcore.Image.from_numpy(depth, Format.DEPTH)
    with copied.read() as view:
        assert view.ctypes.data != depth.ctypes.data
        np.testing.assert_array_equal(view, depth)

    adopted = lmxcore.Image.from_numpy(depth, Format.DEPTH, adopt=True)
    adopted.depth_scale = 0.5
    alive, address = weakref.ref(depth), depth.ctypes.data
    del depth
    gc.collect()
    assert alive() is not None
    with adopted.read(Format.DEPTH) as view:
        assert view.ctypes.data == address
    assert adopted.metadata.value(lmxcore.DEPTH_SCALE) == 0.5
    assert adopted.metadata[lmxcore.DEPTH_SCALE] == np.float32(0.5).tobytes()
    del adopted, view
    gc.collect()
    assert alive() is None


def test_converter_length_tone_streaming_and_the_tool_agree(tmp_path):
    t = np.arange(62975) / 44100
    stereo = np.repeat((np.sin(2 * np.pi * 1000 * t) * 8000).astype(np.int16)[:, None], 2, 1)  # (frames, 2)
    converter = lmxcore.AudioConverter()
    mono = converter.convert(stereo, 44100, 16000)
    assert mono.dtype == np.int16 and len(mono) == 22848  # round(62975 * 16000 / 44100)
    spectrum = np.abs(np.fft.rfft(mono.astype(np.float64)))
    assert abs(np.argmax(spectrum) * 16000 / len(mono) - 1000) < 2
    chunks = [converter.feed(stereo[i:i + 960], 44100, 16000) for i in range(0, len(stereo), 960)]
    np.testing.assert_array_equal(np.concatenate(chunks + [converter.flush()]), mono)
    assert converter.convert(stereo, 44100, 16000, out_channels=2).shape == (len(mono), 2)
    assert lmxcore.Allocator().audio(stereo, 44100).channels == 2
    tool = os.path.join(os.environ.get("LMX_BIN_DIR", ""), "lmxtool")
    if not os.path.exists(tool):
        pytest.skip("lmxtool not built")
    with wave.open(str(tmp_path / "in.wav"), "wb") as out:
        out.setnchannels(2), out.setsampwidth(2), out.setframerate(44100), out.writeframes(stereo.tobytes())
    subprocess.run([tool, "resample", str(tmp_path / "in.wav"), str(tmp_path / "out.wav"), "--rate", "16000"],
                   check=True, capture_output=True)
    with wave.open(str(tmp_path / "out.wav")) as result:
        np.testing.assert_array_equal(np.frombuffer(result.readframes(result.getnframes()), np.int16), mono)


def test_scheduler_runs_callbacks_on_workers_and_fails_outputs_of_a_raising_task(caplog):
    scheduler = lmxcore.Scheduler()
    threads, statuses = [], []
    frame_key, result_key = object(), object()
    done = scheduler.submit(lambda: threads.append(threading.get_ident()), outputs=[frame_key])
    scheduler.request_inputs([frame_key], statuses.append)
    assert done.wait(5) == Status.NO_ERROR

    def broken():
        raise ValueError("no frame")
    with caplog.at_level(logging.ERROR, logger="lmxcore"):
        failed = scheduler.submit(broken, outputs=[result_key])
        after = scheduler.request_inputs([result_key], statuses.append, outputs=["derived"])
        with pytest.raises(LmxError) as error:
            failed.wait(5)
        with pytest.raises(LmxError):
            after.wait(5)
    assert error.value.status == Status.EXEC_ABORTED
    assert "no frame" in caplog.text
    assert threads and threading.get_ident() not in threads
    assert sorted(statuses) == [Status.EXEC_ABORTED, Status.NO_ERROR]
    with pytest.raises(LmxError, match="EXEC_TIMEOUT"):
        scheduler.sync_point(["never signalled"]).wait(0.05)
    scheduler.close()


def test_keys_are_let_go_once_the_scheduler_cannot_refer_to_them():
    scheduler = lmxcore.Scheduler()
    frame, failed = np.zeros(4), np.zeros(4)
    frame_ref, failed_ref = weakref.ref(frame), weakref.ref(failed)
    done = scheduler.submit(lambda: None, outputs=[frame])
    scheduler.request_inputs([frame], lambda status: None, outputs=["consumed"]).wait(5)
    scheduler.mark_outputs([failed], Status.EXEC_ABORTED)  # its failure record names it
    del frame, failed, done
    gc.collect()
    assert frame_ref() is None and failed_ref() is not None
    scheduler.close()
    assert failed_ref() is None


# Misuse, run in a child interpreter (an abort fails its cases instead of the run):
# the code, the exception it raises and a fragment of the message.
MISUSE = [
    ("s.submit(42)", TypeError, "expected a callable task, got int"),
    ("s.submit(lambda x, y: 0, outputs=[k])", TypeError, "called with no arguments"),
    ("s.request_inputs([], lambda: None, outputs=[k]).wait(1)", TypeError, "one argument, the inputs' status"),
    ("s.submit(functools.partial(int, 'x'), outputs=[k]).wait(5)", LmxError, "EXEC_ABORTED"),  # no traceback
    ("s.submit(lambda: 2**40, outputs=[k]).wait(5)", LmxError, "EXEC_ABORTED"),
    ("s.submit(lambda: 0, outputs='ab')", TypeError, "outputs as a list or tuple"),
    ("s.sync_point().wait('soon')", TypeError, "timeout in seconds"),
    ("interrupt(); s.sync_point([k]).wait()", KeyboardInterrupt, ""),
    ("interrupt(); s.sync_point([k]).wait(5.0)", KeyboardInterrupt, ""),
    ("img.metadata[1] = 2**40", ValueError, "expected an int32"),
    ("img.metadata[1] = 'text'", TypeError, "expected bytes"),
    ("img.depth_scale", LmxError, "has none"),
    ("img.depth_scale = 0.1", ValueError, "power of two"),
    ("img.depth_scale = 0", ValueError, "power of two"),
    ("img.depth_scale = float('nan')", ValueError, "power of two"),
    ("a.image(-4, 4, Format.BGR)", ValueError, "at least 1, got -4x4"),
    ("a.image(W, H, 12345)", ValueError, "expected an lmxcore.Format"),
    ("img.read(rotate=45)", ValueError, "0, 90, 180 or 270"),
    ("a.image(W, H, Format.YUY2).read(Format.BGR).__enter__()", LmxError, "PARAM_UNSUPPORTED"),  # nothing written
    ("lmxcore.Image.from_numpy([[1, 2], [3, 4]], Format.Y8)", TypeError, "expected a NumPy array"),
    ("lmxcore.Image.from_numpy(np.zeros((480, 640), np.float32), Format.BGR)", TypeError,
     "expected a uint8 array of shape (480, 640, 3) for BGR, got float32 (480, 640)"),
    ("lmxcore.Image.from_numpy(np.zeros((H, W, 3), np.uint8), Format.BGRA)", ValueError, "(48, 64, 4) for BGRA"),
    ("lmxcore.Image.from_numpy(np.zeros((H, W, 2), np.uint8)[:, ::2], Format.YUY2, adopt=True)", ValueError,
     "packed pixels"),
    ("with img.read() as v: pass\nv.sum()", ValueError, "block that has ended"),
    ("with img.read() as v:\n  with img.write(): pass", LmxError, "still open"),
    ("a.audio(np.zeros(5, np.int16), 16000, channels=2)", ValueError, "multiple of channels=2"),
    ("c.convert(np.zeros((10, 2), np.int16), 48000, 16000, channels=3)", ValueError, "shape (frames, 3)"),
    ("c.convert(np.zeros(4), 16000, 8000)", TypeError, "int16 or float32 samples, got float64"),
    ("c.convert(np.zeros(4, np.int16), 0, 8000)", ValueError, "positive sample rates"),
]

CHILD = """
import functools, json, os, signal, sys, threading, time, numpy as np, lmxcore
from lmxcore import Format
W, H = 64, 48
a, c, s, k = lmxcore.Allocator(), lmxcore.AudioConverter(), lmxcore.Scheduler(), object()
img = lmxcore.Image.from_numpy(np.zeros((H, W), np.uint16), Format.DEPTH)
interrupt = lambda: threading.Timer(0.2, os.kill, (os.getpid(), signal.SIGINT)).start()
for code in json.load(sys.stdin):
    start = time.monotonic()
    try:
        exec(code)
        kind, text = None, ""
    except BaseException as error:
        kind, text = type(error).__name__, str(error)
    print(json.dumps([kind, text, time.monotonic() - start]), flush=True)
s.sync_point([k])  # dropped unsignalled: must not reach the library's fatal line
s.close()
"""


@pytest.fixture(scope="module")
def misuse(tmp_path_factory):
    registry = tmp_path_factory.mktemp("reg") / "lmsdk.reg"
    registry.write_text("Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\Software\\Norvik\\LMSDK\\Logging]\n"
                        '"DebugView"="FATAL"\n')
    child = subprocess.run([sys.executable, "-c", CHILD], input=json.dumps([code for code, _, _ in MISUSE]),
                           capture_output=True, text=True, timeout=120, env=dict(os.environ, LMSDK_REGISTRY=str(registry)))
    assert "Attempt to delete SP" not in child.stderr
    return [json.loads(line) for line in child.stdout.splitlines()], child


@pytest.mark.parametrize("case", range(len(MISUSE)), ids=[code.split("(")[0] for code, _, _ in MISUSE])
def test_misuse_raises_what_was_expected(misuse, case):
    results, child = misuse
    assert case < len(results), f"child died (exit {child.returncode}): {child.stderr[-500:]}"
    code, kind, fragment = MISUSE[case]
    assert results[case][0] == kind.__name__ and fragment in results[case][1], (code, results[case])
    assert results[case][2] < 1.5  # a KeyboardInterrupt comes 0.2 s in, not after the wait


def test_help_names_python_types():
    text = pydoc.render_doc(lmxcore)
    assert "lmxpy::" not in text and "-> object" not in text and "format: int" not in text
    assert "read(self: lmxcore.Image, format: Optional[lmxcore.Format] = None" in text
    assert lmxcore.__version__ and repr(lmxcore.Allocator().image(W, H, Format.NV12)) == "<lmxcore.Image 64x48 NV12>"
