"""extract from Python against the C++ library, and throughput with one and two threads.

    make python
    PYTHONPATH=build/python python3 python/bench/extract_bench.py build/python/orvane_reference

Workloads, all on one photo-like 640x480 BGR image (the test suite's generator):
  C++          CFIDExtractor::extract, the reference program, mean over COUNT runs
  Python bgr   Extractor.extract on the array as cv2.imread gives it (read in place)
  Python rgb   the same with order="rgb" (one copy with the channels swapped)
  threads      photos per second with one and with two threads, one Extractor each
Each figure is the best of ROUNDS alternating rounds (other programs only ever add time), as
wall time and as processor time of this process (which a busy machine disturbs less).
"""

import os
import pathlib
import struct
import subprocess
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests"))
import orvane  # noqa: E402
from conftest import photo  # noqa: E402

COUNT = 400
ROUNDS = 5


def cpp_seconds(program, image):
    data = struct.pack("<II", image.shape[1], image.shape[0]) + image.tobytes()
    out = subprocess.run([program, "time", str(COUNT)], input=data, capture_output=True, check=True)
    wall, cpu = out.stdout.split()
    return float(wall), float(cpu)


def python_seconds(image, order):
    extractor = orvane.Extractor()
    extractor.extract(image, order=order)
    start, cpu_start = time.perf_counter(), time.process_time()
    for _ in range(COUNT):
        extractor.extract(image, order=order)
    return (time.perf_counter() - start) / COUNT, (time.process_time() - cpu_start) / COUNT


def photos_per_second(image, threads):
    def work():
        extractor = orvane.Extractor()
        for _ in range(COUNT // threads):
            extractor.extract(image)

    workers = [threading.Thread(target=work) for _ in range(threads)]
    start = time.perf_counter()
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    return (COUNT // threads) * threads / (time.perf_counter() - start)


def main():
    program = sys.argv[1] if len(sys.argv) > 1 else "build/python/orvane_reference"
    image = photo(640, 480, 1)
    rgb = image[..., ::-1].copy()
    best = {"cpp": [], "bgr": [], "rgb": [], "1 thread": [], "2 threads": []}
    for _ in range(ROUNDS):
        best["cpp"].append(cpp_seconds(program, image))
        best["bgr"].append(python_seconds(image, "bgr"))
        best["rgb"].append(python_seconds(rgb, "rgb"))
        best["1 thread"].append(photos_per_second(image, 1))
        best["2 threads"].append(photos_per_second(image, 2))
    one, two = max(best["1 thread"]), max(best["2 threads"])
    print(f"{os.cpu_count()} cores, load average {os.getloadavg()[0]:.2f} at the end")
    cpp_wall, cpp_cpu = (min(times) for times in zip(*best["cpp"]))
    print(f"extract 640x480               wall ms   processor ms")
    for name in ("cpp", "bgr", "rgb"):
        wall, cpu = (min(times) for times in zip(*best[name]))
        print(f"  {name:5}                 {wall * 1e3:8.3f} ({(wall / cpp_wall - 1) * 100:+5.1f} %)"
              f" {cpu * 1e3:8.3f} ({(cpu / cpp_cpu - 1) * 100:+5.1f} %)")
    print(f"throughput, 1 thread          {one:.0f} photos/s")
    print(f"throughput, 2 threads         {two:.0f} photos/s ({two / one:.2f}x)")


if __name__ == "__main__":
    main()
