"""The Python binding: zero-copy views, conversions, audio converter, scheduler, errors."""
import gc
import logging
import os
import subprocess
import threading
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
        row = view[3]  # a derived view keeps the acquisition (and its memory) alive
    assert view.shape == (0, 0, 0) and access.pointers == ()
    with pytest.raises(IndexError):
        view[0, 0]
    np.testing.assert_array_equal(row, yuy2[3])
    with pytest.raises(LmxError) as error:  # a writer needs the image free of readers
        image.write(Format.YUY2).__enter__()
    assert error.value.status == Status.PARAM_UNSUPPORTED
    del row
    with image.write(Format.YUY2) as planes:  # the last view is gone: free again
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


def test_converter_output_length_tone_and_streaming():
    t = np.arange(48000) / 48000
    stereo = np.repeat((np.sin(2 * np.pi * 1000 * t) * 0.5).astype(np.float32), 2)
    converter = lmxcore.AudioConverter()
    mono = converter.convert(stereo, 48000, 16000, channels=2)
    assert mono.dtype == np.int16 and abs(len(mono) - 16000) <= 2
    spectrum = np.abs(np.fft.rfft(mono.astype(np.float64)))
    assert abs(np.argmax(spectrum) * 16000 / len(mono) - 1000) < 2
    chunks = [converter.feed(stereo[i:i + 960], 48000, 16000, channels=2) for i in range(0, len(stereo), 960)]
    np.testing.assert_array_equal(np.concatenate(chunks + [converter.flush()]), mono)
    assert converter.convert(stereo, 48000, 16000, out_channels=2, channels=2).shape == (len(mono), 2)


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
    with pytest.raises(LmxError) as error:
        scheduler.sync_point(["never signalled"]).wait(0.05)
    assert error.value.status == Status.EXEC_TIMEOUT
    scheduler.close()


@pytest.mark.parametrize("call, status", [
    (lambda a: a.image(W, H, Format.YUY2).read(Format.BGR).__enter__(), Status.PARAM_UNSUPPORTED),  # nothing written
    (lambda a: a.image(0, H, Format.YUY2).to_numpy(), Status.PARAM_UNSUPPORTED),
    (lambda a: a.image(W, H, Format.YUY2).read(rotate=45), Status.PARAM_UNSUPPORTED),
    (lambda a: lmxcore.Image.from_numpy(np.zeros((H, W, 3), np.uint8), Format.BGRA), Status.PARAM_UNSUPPORTED),
    (lambda a: lmxcore.Image.from_numpy(np.zeros((H, W, 2), np.uint8)[:, ::2], Format.YUY2, adopt=True),
     Status.PARAM_UNSUPPORTED),
    (lambda a: a.audio(np.zeros(5, np.int16), 16000, channels=2), Status.PARAM_UNSUPPORTED),
    (lambda a: lmxcore.AudioConverter().convert(np.zeros(4, np.float64), 16000, 8000), Status.PARAM_UNSUPPORTED),
])
def test_bad_arguments_raise_with_their_status(call, status):
    with pytest.raises(LmxError) as error:
        call(lmxcore.Allocator())
    assert error.value.status == status and error.value.text.startswith("LMX_STATUS_")
