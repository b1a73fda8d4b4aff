"""Time NumPy on what bench_vector_arithmetic and bench_vector_summary time.

    python3 bench/vector/numpy_peer.py >numpy.json

Writes what Google Benchmark would: names and nanoseconds, for bench/ratios.py. Kernels run into an
array that is there, whole operations allocate their result, as the library does.
"""

import json
import sys
import time
import timeit

import numpy as np

TYPES = {"u8": np.uint8, "u16": np.uint16, "i16": np.int16, "i32": np.int32,
         "f32": np.float32, "f64": np.float64}
UFUNCS = {"+": np.add, "-": np.subtract, "*": np.multiply, "<": np.less, "=": np.equal,
          "/": np.floor_divide}
WIDER = {"u8": "u16", "i16": "i32", "f32": "f64"}
OPERATIONS = ["u8+:u16", "u8-:i16", "u8*:u16", "u8<:u8", "i16+:i32", "i16<:u8", "i32+:i32",
              "i32=:u8", "f32+:f32", "f32<:u8", "f64+:f64", "f64*:f64", "f64<:u8"]


def nanoseconds(work):
    """The least processor time of a run: other programs may run beside."""
    timer = timeit.Timer(work, timer=time.process_time)
    count, _ = timer.autorange()
    return min(timer.repeat(5, max(1, count // 4))) / max(1, count // 4) * 1e9


def data(name, length, seed):
    random = np.random.default_rng(seed)
    high = 256 if TYPES[name]().itemsize == 1 else 20000
    return random.integers(0, high, length).astype(TYPES[name]) + TYPES[name](high != 256)


def calls(ufunc, x, y, result, out):
    """The ufunc in the form that computes in the result's type; comparisons give bool."""
    if ufunc in (np.less, np.equal):
        if out is not None and result != np.uint8:
            return lambda: ufunc(x, y, out=out, casting="unsafe")
        return (lambda: ufunc(x, y)) if out is None else lambda: ufunc(x, y, out=out)
    if out is not None:
        return lambda: ufunc(x, y, out=out, dtype=result)
    return (lambda: ufunc(x, y)) if x.dtype == result else lambda: ufunc(x, y, dtype=result)


def arithmetic(what, case, lengths):
    name, op, result = case.split(":")[0][:-1], case.split(":")[0][-1], case.split(":")[1]
    for length in lengths:
        for scalar in (False, True):
            x, y = data(name, length, 1), data(name, length, 2)
            if scalar:
                y = y[0]
            compares = op in "<="
            room = np.bool_ if compares and result == "u8" else TYPES[result]
            out = np.empty(length, room) if what == "Kernel" else None
            label = f"{what}/{name}{op}{'scalar' if scalar else name}:{result}/{length}/numpy"
            yield label, nanoseconds(calls(UFUNCS[op], x, y, TYPES[result], out))


def summaries(length=1 << 20):
    for name in ("u8", "u16", "f32", "f64"):
        x = np.random.default_rng(3).normal(0, 50, length) if name[0] == "f" else \
            np.random.default_rng(3).integers(0, np.iinfo(TYPES[name]).max + 1, length)
        x = x.astype(TYPES[name])
        yield f"MinMax/{name}/numpy", nanoseconds(lambda: (x.argmin(), x.argmax()))
        yield f"MeanStddev/{name}/numpy", nanoseconds(lambda: (x.mean(), x.std(ddof=1)))
        yield f"Median/{name}/numpy", nanoseconds(lambda: np.median(x))


def everything():
    for name in ("u8", "i16", "i32", "f32", "f64"):
        cases = [f"{name}{op}:{name}" for op in "+-*"] + [f"{name}{op}:u8" for op in "<="]
        if name in WIDER:
            cases += [f"{name}{op}:{WIDER[name]}" for op in "+-*<="]
        for case in cases + ([f"{name}/:{name}"] if name in ("i16", "i32") else []):
            yield from arithmetic("Kernel", case, (1 << 16, 1 << 20, 1 << 24))
    for case in OPERATIONS:
        yield from arithmetic("Op", case, (16, 1 << 20, 1 << 24))
    yield from summaries()


json.dump({"benchmarks": [{"name": name, "cpu_time": taken, "time_unit": "ns"}
                          for name, taken in everything()]}, sys.stdout, indent=1)
