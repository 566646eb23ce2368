"""The batch rules of kiv export, through the built kiv."""
import os
import pathlib
import pty
import resource
import shutil
import signal
import subprocess
import time

import numpy as np

from conftest import IMAGE_SAMPLE, kiv_binary, run_kiv, write_image_file


def copies(folder, count, sample=IMAGE_SAMPLE):
    folder.mkdir()
    return [shutil.copy(sample, folder / f"scan_{i:03}.flt") for i in range(count)]


def test_parallel_batch_names_outputs_after_inputs_without_progress_off_a_terminal(tmp_path):
    inputs = copies(tmp_path / "in", 24)
    (tmp_path / "out").mkdir()
    result = run_kiv("export", *inputs, "--to", "npy", "-d", tmp_path / "out", "-j", 4)
    assert result.returncode == 0
    assert result.stderr == ""  # no progress line into a pipe
    assert result.stdout == "24 files: 24 exported, 0 failed\n"
    outputs = sorted(p.name for p in (tmp_path / "out").iterdir())
    assert outputs == [f"scan_{i:03}.npy" for i in range(24)]
    first, last = (np.load(tmp_path / "out" / name) for name in (outputs[0], outputs[-1]))
    np.testing.assert_array_equal(first, last)


def test_progress_line_on_a_terminal(tmp_path):
    inputs = copies(tmp_path / "in", 5)
    controller, terminal = pty.openpty()
    result = subprocess.run([kiv_binary(), "export", *inputs, "--to", "npy", "-j", "2"],
                            stdout=subprocess.PIPE, stderr=terminal, timeout=60)
    os.close(terminal)
    shown = os.read(controller, 65536).decode()
    os.close(controller)
    assert result.returncode == 0
    assert "[5/5] 100%" in shown and "files/s" in shown
    assert result.stdout.decode() == "5 files: 5 exported, 0 failed\n"


def test_one_failure_among_many_is_one_line_and_the_rest_go_on(tmp_path):
    inputs = copies(tmp_path / "in", 6)
    broken = tmp_path / "in" / "broken.flt"
    broken.write_bytes(b"[Data Version]\r\n[Point Spectroscopy Data]\r\n[Data]\r\n")
    missing = tmp_path / "in" / "missing.flt"
    result = run_kiv("export", *inputs, broken, missing, "--to", "gsf", "-j", 3)
    assert result.returncode == 1
    assert result.stdout == "8 files: 6 exported, 2 failed\n"
    failures = sorted(result.stderr.splitlines())
    assert len(failures) == 2
    assert failures[0].startswith(f"kiv: {broken}: ") and failures[1].startswith(f"kiv: {missing}: ")
    assert all((tmp_path / "in" / f"scan_{i:03}.gsf").stat().st_size > 65536 for i in range(6))
    assert not (tmp_path / "in" / "broken.gsf").exists()


def test_a_failed_write_leaves_neither_a_partial_output_nor_a_temporary_file(tmp_path):
    def limit_file_size():
        resource.setrlimit(resource.RLIMIT_FSIZE, (32768, 32768))

    result = run_kiv("export", IMAGE_SAMPLE, "--to", "csv", "-d", tmp_path,
                     preexec_fn=limit_file_size)
    assert result.returncode == 1
    assert "cannot write the output" in result.stderr and len(result.stderr.splitlines()) == 1
    assert list(tmp_path.iterdir()) == []


def test_existing_outputs_are_kept_unless_forced(tmp_path):
    output = tmp_path / "t.npy"
    output.write_bytes(b"mine")
    kept = run_kiv("export", IMAGE_SAMPLE, "--to", "npy", "-o", output)
    assert kept.returncode == 1 and "already exists" in kept.stderr
    assert output.read_bytes() == b"mine"
    forced = run_kiv("export", IMAGE_SAMPLE, "--to", "npy", "-o", output, "--force")
    assert forced.returncode == 0 and np.load(output).shape == (128, 128)
    assert sorted(p.name for p in tmp_path.iterdir()) == ["t.npy"]


def test_inputs_that_would_share_an_output_fail_rather_than_overwrite(tmp_path):
    (tmp_path / "a").mkdir()
    (tmp_path / "b").mkdir()
    inputs = [shutil.copy(IMAGE_SAMPLE, tmp_path / folder / "scan.flt") for folder in "ab"]
    (tmp_path / "out").mkdir()
    result = run_kiv("export", *inputs, "--to", "npy", "-d", tmp_path / "out", "--force")
    assert result.returncode == 1 and result.stdout == "2 files: 1 exported, 1 failed\n"
    assert "also exported to" in result.stderr


def test_an_output_never_replaces_its_input(tmp_path):
    source = shutil.copy(IMAGE_SAMPLE, tmp_path / "scan.flt")
    result = run_kiv("export", source, "--to", "csv", "-o", source, "--force")
    assert result.returncode == 1 and "would replace the input" in result.stderr
    assert source.read_bytes() == IMAGE_SAMPLE.read_bytes()


def test_usage_errors(tmp_path):
    for arguments in (["-o", tmp_path / "x.npy", IMAGE_SAMPLE],  # -o with two inputs
                      ["--to", "jpeg"], ["--range", "5:1"], ["--colormap", "jet"]):
        full = ["export", IMAGE_SAMPLE, *arguments]
        if "--to" not in arguments:
            full += ["--to", "png"]
        result = run_kiv(*full)
        assert result.returncode == 2, arguments
        assert len(result.stderr.splitlines()) == 1
    assert list(tmp_path.iterdir()) == []


def writing_into(pid, folder):
    """Whether the process holds a file of folder open: an unnamed one shows in /proc as the
    folder's path with "#inode (deleted)", a hidden one by its name."""
    try:
        links = [os.readlink(entry) for entry in pathlib.Path(f"/proc/{pid}/fd").iterdir()]
    except OSError:
        return False
    return any(link.startswith(str(folder) + "/") for link in links)


def test_an_interrupted_export_removes_its_temporary_output(tmp_path):
    source = write_image_file(tmp_path / "big.flt",
                              np.random.default_rng(1).random((2048, 2048), dtype=np.float32))
    out = tmp_path / "out"
    out.mkdir()
    process = subprocess.Popen([kiv_binary(), "export", source, "--to", "csv", "-d", out],
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        deadline = time.monotonic() + 30
        while not writing_into(process.pid, out) and time.monotonic() < deadline:
            time.sleep(0.001)
        assert writing_into(process.pid, out)
        process.send_signal(signal.SIGTERM)
        assert process.wait(timeout=30) == -signal.SIGTERM
    finally:
        process.kill()
    assert list(out.iterdir()) == []


def test_outputs_are_ordinary_files_under_the_users_umask(tmp_path):
    result = run_kiv("export", IMAGE_SAMPLE, "--to", "npy", "-d", tmp_path,
                     preexec_fn=lambda: os.umask(0o027))
    assert result.returncode == 0
    assert (tmp_path / "topography_128.npy").stat().st_mode & 0o777 == 0o640
