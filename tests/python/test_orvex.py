# The Python module against the command line: the same runs must give the same numbers, the
# same edits the same bytes, the same bad input the same messages. Imported at the top, so a
# missing module fails the collection (and with it the CTest test) instead of skipping.
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import textwrap
import time
import warnings

import numpy as np
import pytest

import orvex

BIN = pathlib.Path(os.environ.get("ORVEX_BIN", pathlib.Path(orvex.__file__).parent))
CLI = os.environ.get("ORVEX_CLI", str(BIN / "orvex-cli"))
PROGS = sorted((BIN / "progs").glob("*.kvp"))


def test_the_module_under_test_is_the_build_trees():
    assert pathlib.Path(orvex.__file__).parent.resolve() == BIN.resolve()
    assert len(PROGS) >= 4


@pytest.fixture
def home(tmp_path):
    """A private copy of the demo sets and programs (the tests write into sets)."""
    shutil.copytree(BIN / "MI", tmp_path / "MI")
    shutil.copytree(BIN / "progs", tmp_path / "progs")
    (tmp_path / "help.htm").write_text("<html></html>")
    return tmp_path


def cli(*args, check=True):
    r = subprocess.run([CLI, *map(str, args)], capture_output=True, text=True)
    if check:
        assert r.returncode == 0, r.stderr
    return r


def normalized(path):
    """The bytes the MI writer makes of the file, as the command line prints them."""
    r = subprocess.run([CLI, "mi", "normalize", str(path)], capture_output=True)
    assert r.returncode == 0, r.stderr
    return r.stdout


def g(v, digits=15):
    return "%.*g" % (digits, v)


def header(path, key):
    m = re.search(r"^# %s: (.*)$" % key, path.read_text(), re.M)
    return m.group(1).strip()


@pytest.mark.parametrize("prog", PROGS, ids=[p.stem for p in PROGS])
def test_each_demo_program_ends_in_its_expected_values(prog):
    expected = [[float(x) for x in q.split()] for q in header(prog, "expect").split("|")]
    q = orvex.run(orvex.Program(str(prog)), header(prog, "set"), home=str(BIN))
    assert q.shape == (len(expected), 3)
    # A simulated device (pulses with crosstalk) states how close it comes.
    tolerance = re.search(r"^# tolerance: (.*)$", prog.read_text(), re.M)
    atol = float(tolerance.group(1)) if tolerance else 1e-9
    np.testing.assert_allclose(q, expected, atol=atol, rtol=0)


def test_run_trace_and_check_print_what_the_command_line_prints(home, tmp_path, monkeypatch):
    monkeypatch.chdir(home)
    for prog, order in (("progs/bell.kvp", 2), ("progs/qft3.kvp", 4)):
        s = header(home / prog, "set")
        out = cli("run", prog, "--set", s, "--home", home, "--format", "csv",
                  "--order", order, "--trace", tmp_path / "t.csv").stdout
        q = orvex.run(prog, s, home=str(home), order=order)
        # A run moves into the program's directory; the script's own stays where it was.
        assert os.getcwd() == str(home)
        mine = "qubit,Qx,Qy,Qz\n" + "".join(
            "%d,%s,%s,%s\n" % (i + 1, *map(g, row)) for i, row in enumerate(q))
        assert mine == out
        times, qt = orvex.trace(prog, orvex.MISet(str(home / "MI" / s)), order=order)
        assert qt.shape == (len(times), q.shape[0], 3) and len(times) > 2
        rows = "".join("%s,%d,%s,%s,%s\n" % (g(t), i + 1, *map(g, qt[k, i]))
                       for k, t in enumerate(times) for i in range(qt.shape[1]))
        assert "t,qubit,Qx,Qy,Qz\n" + rows == (tmp_path / "t.csv").read_text()
        np.testing.assert_array_equal(qt[-1], q)

        table = cli("check", prog, "--set", s, "--home", home, "--order", order).stdout
        c = orvex.check(prog, s, home=str(home), order=order)
        assert c["order"] == order and c["deviation"].shape == (q.shape[0],)
        np.testing.assert_array_equal(c["as_written"], q)
        for i, line in enumerate(table.splitlines()[3:3 + q.shape[0]]):
            assert line.split()[:3] == [str(i + 1), g(c["deviation"][i], 6), g(c["error"][i], 6)]
        assert table.splitlines()[-1] == "max deviation %s, estimated error %s" % (
            g(c["max_deviation"], 6), g(c["estimated_error"], 6))


def test_fidelity_and_sweep_give_the_command_lines_numbers(home):
    out = cli("fidelity", "Hadamard1", "--set", "ideal2", "--home", home, "--qubits", "1",
              "--target", "RY", "--angle", "1.5707963267949", "--z-phases").stdout
    f, leak, m = orvex.fidelity("Hadamard1", "ideal2", [1], "RY", angle=1.5707963267949,
                                z_phases=True, home=str(home))
    assert m.shape == (2, 2) and m.dtype == complex
    assert out.splitlines()[-1] == "fidelity %.12g, leakage %.12g" % (f, leak)
    for r, line in enumerate(out.splitlines()[:2]):
        assert line.split() == ["%.6f%c%.6fi" % (a.real, "-" if a.imag < 0 else "+", abs(a.imag))
                                for a in m[r]]
    f2, _, m2 = orvex.fidelity("CZ", "ideal2", [1, 2], "CZ", home=str(home))
    assert m2.shape == (4, 4) and f2 > 0.99

    vary = ["Hadamard1:Hx0@1=0:2:3", "CZ:Jz@1-2=0.5:1:2"]
    prog = str(home / "progs/bell.kvp")
    out = cli("sweep", prog, "--set", "ideal2", "--home", home,
              *[a for v in vary for a in ("--vary", v)]).stdout
    values, q = orvex.sweep(prog, "ideal2", vary, home=str(home))
    assert values.shape == (6, 2) and q.shape == (6, 2, 3)
    mine = "value1,value2,qubit,Qx,Qy,Qz\n" + "".join(
        "%s,%s,%d,%s,%s,%s\n" % (*map(g, values[p]), i + 1, *map(g, q[p, i]))
        for p in range(6) for i in range(2))
    assert mine == out
    _, q2 = orvex.sweep(prog, "ideal2", vary, home=str(home), jobs=3)
    np.testing.assert_array_equal(q2, q)
    with pytest.raises(orvex.Error, match="MI Nope is not in the set ideal2"):
        orvex.sweep(prog, "ideal2", ["Nope:Hx0@1=0:1:2"], home=str(home))


def test_mi_edits_are_saved_in_the_workbench_bytes(home):
    path = home / "MI/ideal2/Not1.MI"
    original = path.read_bytes()
    s = orvex.MISet(str(home / "MI/ideal2"))
    mi = s["not1"]  # letter case and ".MI" do not matter
    assert mi.fields.shape == (2, 12) and mi.couplings.shape == (2, 2, 3)
    mi.save()
    # Saved unedited: exactly what the writer makes of the file.
    plain = path.read_bytes()
    assert plain == normalized(path)

    fields = mi.fields
    fields[1, 6] = -0.375
    mi.fields = fields
    c = mi.couplings
    c[0, 1] = (0.125, 0, 2.5)
    c[1, 0] = (9, 9, 9)  # not a pair of the file
    mi.couplings = c
    mi.time_step = 0.5
    mi.intermediate_steps = 20
    mi.description = "edited from a script"
    s.save("Not1")
    edited = path.read_bytes()
    assert edited == normalized(path)
    # Only the lines carrying the edited values changed.
    a, b = plain.split(b"\r\n"), edited.split(b"\r\n")
    assert len(a) == len(b)
    changed = [y for x, y in zip(a, b) if x != y]
    assert changed == [b"1,2, .125,0,2.5,  ! Jx, Jy, Jz ",
                       b"0, 0, 0, 0, 0, 0, -.375, 0, 0, 0, 0, 0, ",
                       b"TIME STEP", b".5", b"20", b"!edited from a script"]

    again = orvex.MISet(str(home / "MI/ideal2"))["Not1"]
    np.testing.assert_array_equal(again.fields, fields)
    np.testing.assert_array_equal(again.couplings[0, 1], [0.125, 0, 2.5])
    assert again.couplings[1, 0].tolist() == [0, 0, 0]
    assert (again.time_step, again.intermediate_steps, again.description) == (
        0.5, 20, "edited from a script")
    assert original != edited
    with pytest.raises(ValueError):
        mi.fields = np.zeros((3, 12))
    with pytest.raises(KeyError):
        s["Nope"]


def test_bad_input_raises_with_the_workbench_messages(home):
    assert issubclass(orvex.Error, RuntimeError)
    with pytest.raises(orvex.Error) as e:
        orvex.Program(str(home / "help.htm"))
    assert str(e.value) == ("The file help.htm is not a quantum program.\nA quantum program "
                            "holds only lines that begin with @, ! or #; the file was not opened.")

    r = cli("run", home / "progs/bell.kvp", "--set", "nope", "--home", home, check=False)
    with pytest.raises(orvex.Error) as e:
        orvex.run(str(home / "progs/bell.kvp"), "nope", home=str(home))
    assert "orvex-cli run: %s\n" % e.value == r.stderr

    (home / "MI/ideal2/Bad.MI").write_bytes(b"HEISENBERG INTERACTION\r\n1,2,abc\r\nEND\r\n")
    r = cli("run", home / "progs/bell.kvp", "--set", "ideal2", "--home", home)
    with warnings.catch_warnings(record=True) as w:
        warnings.simplefilter("always")
        s = orvex.MISet(str(home / "MI/ideal2"))
    assert "Bad" not in s.names and "Not1" in s.names
    assert "warning: %s\n" % " ".join(str(w[0].message).split()) == r.stderr


def test_ctrl_c_stops_a_long_run_and_leaves_the_module_usable(home):
    s = orvex.MISet(str(home / "MI/ideal2"))
    s["CZ"].field_steps = 10 ** 7
    s.save("CZ")
    script = textwrap.dedent("""
        import os, sys, orvex
        home = sys.argv[1]
        print("started", flush=True)
        try:
            orvex.run(home + "/progs/bell.kvp", "ideal2", home=home)
            print("ran to the end")
        except KeyboardInterrupt:
            print("interrupted", os.getcwd() == home, flush=True)
        s = orvex.MISet(home + "/MI/ideal2")
        s["CZ"].field_steps = 1
        s.save("CZ")
        print(round(orvex.run(home + "/progs/deutsch.kvp", "ideal2", home=home)[0, 2], 9))
        """)
    p = subprocess.Popen([sys.executable, "-c", script, str(home)], cwd=home,
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    assert p.stdout.readline() == "started\n"
    time.sleep(1.5)
    p.send_signal(signal.SIGINT)
    out, err = p.communicate(timeout=60)
    assert p.returncode == 0, err
    assert out.split() == ["interrupted", "True", "1.0"]
