#!/usr/bin/python3
"""Rabi chevron: one qubit in a static field along z, driven by an oscillating field along x,
swept over the drive frequency and the pulse duration. Saves rabi_chevron.png and compares
one point with QuTiP when it is installed.

    PYTHONPATH=<build>/bin /usr/bin/python3 examples/rabi_chevron.py [OUTPUT.png]
"""
import pathlib
import shutil
import sys
import tempfile

import numpy as np
import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

import orvex  # noqa: E402

W0 = 1.0        # Larmor frequency: Hz0 of qubit 1
DRIVE = 0.1     # drive amplitude: Hx1 of qubit 1 (Rabi frequency at resonance)
TAU = 2.0       # time step; the pulse lasts FieldSteps * TAU
STEPS = 40      # durations 1 .. STEPS time steps
FREQS = 31      # drive frequencies from 0.8 to 1.2 W0
SUBSTEPS = 40   # intermediate steps per time step


def make_home(root):
    """A private home with a copy of the two-qubit demo set and a Rabi pulse MI in it."""
    bundle = pathlib.Path(orvex.bundle_directory)
    setdir = root / "MI" / "rabi"
    shutil.copytree(bundle / "MI" / "ideal2", setdir)
    shutil.copy(setdir / "X90_1.MI", setdir / "Rabi.MI")
    s = orvex.MISet(str(setdir))
    mi = s["Rabi"]
    fields = np.zeros_like(mi.fields)
    # H = -(Hz0 Sz + Hx1 sin(Omega_x t + phi_x) Sx) on qubit 1
    fields[0, [1, 2, 6, 9]] = DRIVE, W0, W0, np.pi / 2
    mi.fields = fields
    mi.couplings = np.zeros_like(mi.couplings)
    mi.time_step = TAU
    mi.field_steps = 1
    mi.intermediate_steps = SUBSTEPS
    mi.description = "Rabi pulse on qubit 1"
    mi.save()
    program = root / "rabi.kvp"
    program.write_bytes(b"!Quantum program rabi.kvp\r\n@INITIALIZE.MI\r\n@Rabi.MI\r\n")
    return str(program)


def qutip_point(omega, duration):
    """Qz of qubit 1 after the same pulse, from QuTiP's Schroedinger solver."""
    import qutip
    sx, sz = qutip.sigmax() / 2, qutip.sigmaz() / 2
    h = [-W0 * sz, [-DRIVE * sx, lambda t, args: np.sin(omega * t + np.pi / 2)]]
    psi0 = qutip.basis(2, 0)  # |0>, spin up
    out = qutip.sesolve(h, psi0, [0, duration], e_ops=[2 * sz],
                        options=qutip.Options(atol=1e-12, rtol=1e-10, nsteps=100000))
    return (1 - out.expect[0][-1]) / 2


def main():
    png = sys.argv[1] if len(sys.argv) > 1 else "rabi_chevron.png"
    with tempfile.TemporaryDirectory() as tmp:
        program = make_home(pathlib.Path(tmp))
        values, q = orvex.sweep(
            program, "rabi", home=tmp, jobs=2,
            vary=["Rabi:Omega_x@1=%g:%g:%d" % (0.8 * W0, 1.2 * W0, FREQS),
                  "Rabi:FieldSteps=1:%d:%d" % (STEPS, STEPS)])
    qz = q[:, 0, 2].reshape(FREQS, STEPS)  # qubit 1, Qz: the probability of |1>
    freqs = values[::STEPS, 0]
    times = values[:STEPS, 1] * TAU

    plt.figure(figsize=(7, 4.5))
    plt.pcolormesh(times, freqs, qz, shading="nearest", cmap="viridis", vmin=0, vmax=1)
    plt.colorbar(label="P(|1>) of qubit 1")
    plt.xlabel("pulse duration")
    plt.ylabel("drive frequency")
    plt.title("Rabi chevron")
    plt.tight_layout()
    plt.savefig(png, dpi=120)
    print("saved", png)

    i, j = FREQS // 2 + 3, STEPS // 2
    try:
        reference = qutip_point(freqs[i], times[j])
    except ImportError:
        print("QuTiP is not installed: the comparison is skipped")
        return
    print("drive %.4f, duration %g: orvex P(|1>) = %.6f, QuTiP %.6f, difference %.2e"
          % (freqs[i], times[j], qz[i, j], reference, abs(qz[i, j] - reference)))


if __name__ == "__main__":
    main()
