"""The program that README.md shows, taken from there, is built against the installed tree and records from the
installed simulator.

tst_readme.py README TREE WORK CMAKE_ARGUMENT...
"""
import re
import shutil
import subprocess
import sys
import time
import wave
from pathlib import Path

ADDRESS = "127.89.0.11"
DEADLINE = 60


def wait_for(what, condition):
    end = time.monotonic() + DEADLINE
    while not condition():
        if time.monotonic() > end:
            sys.exit(f"waited {DEADLINE} s in vain for {what}")
        time.sleep(0.05)


def main():
    readme, tree, work, *cmake_arguments = sys.argv[1:]
    work = Path(work)
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    blocks = dict(re.findall(r"^```(cpp|cmake)\n(.*?)^```$", Path(readme).read_text(), re.MULTILINE | re.DOTALL))
    (work / "main.cpp").write_text(blocks["cpp"])
    (work / "CMakeLists.txt").write_text(blocks["cmake"])
    subprocess.run(["cmake", "-G", "Ninja", "-S", work, "-B", work / "build", f"-DCMAKE_PREFIX_PATH={tree}",
                    *cmake_arguments], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", work / "build"], check=True)

    with subprocess.Popen([Path(tree, "bin/recorder-simulator"), "--address", ADDRESS, "--rate", "48000"],
                          stdout=subprocess.PIPE, text=True) as simulator:
        try:
            simulator.stdout.readline()  # its first line comes when it listens
            with subprocess.Popen([work / "build/minutes", ADDRESS], cwd=work) as program:
                try:
                    wait_for("half a second of sound", lambda: any(
                        file.stat().st_size > 72000 for file in work.glob("NVX_*.wav")))
                finally:
                    program.kill()
        finally:
            simulator.terminate()

    files = sorted(work.glob("NVX_*.wav"))
    with wave.open(str(files[0])) as recording:
        assert recording.getframerate() == 48000, recording.getframerate()
        assert recording.getsampwidth() == 3 and recording.getnchannels() == 1, recording.getparams()
        assert any(recording.readframes(recording.getnframes())), "the recording is silent"
    print(f"{files[0].name}: fine")


if __name__ == "__main__":
    main()
