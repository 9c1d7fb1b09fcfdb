#!/usr/bin/python3
"""Time to a given accuracy: Orvex against QuTiP's sesolve on the same spin chain.

The problem: N qubits in a chain, couplings (Jx, Jy, Jz) = (1, 0.8, 0.6) on pairs (q, q+1);
on every qubit Hz0 = 1 + 0.05 q, Hx1 = 0.5, Omega_x = 1.5, phi_x = 0.37 q; start |0...0>;
one MI of one main step, tau = 10. The error is the largest deviation of any <sigma> of any
qubit from a reference made by Richardson extrapolation of two fine Orvex runs.

For every accuracy target this finds the smallest number of intermediate steps n (Orvex,
timed as the whole `orvex-cli run` process) and the loosest tolerance (QuTiP, atol = rtol =
tol, timed as the sesolve call alone) that meet it, and prints the ratio of the two times.

    bench/qutip_compare.py --cli build/bin/orvex-cli            # N = 8..16
    bench/qutip_compare.py --cli build/bin/orvex-cli --sizes 8,12 --targets 1e-6
    bench/qutip_compare.py --cli build/bin/orvex-cli --orvex-only --sizes 18,20

QuTiP comes from Debian's python3-qutip; it is needed only here, never by the tests.
"""
import argparse
import math
import os
import shutil
import subprocess
import sys
import tempfile
import time

import numpy as np

TAU = 10.0
J = (1.0, 0.8, 0.6)


def hz0(q):
    return 1.0 + 0.05 * q


def phase(q):
    return 0.37 * q


def mi_text(n_qubits, steps):
    """The chain's MI file, in the layout the workbench writes."""
    lines = ["!Micro instruction ", "HEISENBERG INTERACTION"]
    for q in range(1, n_qubits):
        lines.append(f"{q},{q + 1}, {J[0]!r},{J[1]!r},{J[2]!r},  ! Jx, Jy, Jz ")
    lines.append("END")
    for q in range(1, n_qubits + 1):
        lines.append(f"SPIN : {q} (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, Omega_z, "
                     "phi_x, phi_y, phi_z)")
        values = [0, 0.5, 1.5, 0, 0, 0, hz0(q), 0, 0, phase(q), 0, 0]
        lines.append(", ".join(repr(float(v)) for v in values) + ", ")
        lines.append("END")
    lines += ["NUMBER OF FIELD STEPS", "1", "END", "TIME STEP", repr(TAU), "END",
              "NUMBER OF INTERMEDIATE TIME STEPS", str(steps), "END", "NO CHECK NORM",
              "!ABOUT", "!benchmark chain", "!END"]
    return "\r\n".join(lines) + "\r\n"


class Orvex:
    """Runs the chain through orvex-cli in a scratch home of its own."""

    def __init__(self, cli, n_qubits):
        self.cli = cli
        self.n = n_qubits
        self.home = tempfile.mkdtemp(prefix="orvex-bench-")
        self.set_dir = os.path.join(self.home, "MI", "chain")
        os.makedirs(self.set_dir)
        os.makedirs(os.path.join(self.home, "progs"))
        with open(os.path.join(self.set_dir, "qubits.dat"), "w", newline="") as f:
            f.write(f"{n_qubits}\r\n")
        with open(os.path.join(self.home, "progs", "chain.kvp"), "w", newline="") as f:
            f.write("!Quantum program progs/chain.kvp\r\n@chain.MI\r\n")

    def close(self):
        shutil.rmtree(self.home, ignore_errors=True)

    def run(self, steps, order):
        with open(os.path.join(self.set_dir, "chain.MI"), "w", newline="") as f:
            f.write(mi_text(self.n, steps))
        cmd = [self.cli, "run", os.path.join(self.home, "progs", "chain.kvp"), "--set", "chain", "--home", self.home,
               "--format", "csv"]
        if order != 2:
            cmd += ["--order", str(order)]
        start = time.perf_counter()
        out = subprocess.run(cmd, check=True, capture_output=True, text=True).stdout
        elapsed = time.perf_counter() - start
        rows = [line.split(",") for line in out.strip().splitlines()[1:]]
        q = np.array([[float(v) for v in row[1:4]] for row in rows])
        return 1.0 - 2.0 * q, elapsed  # <sigma_x,y,z> per qubit


def reference(orvex, order):
    """Richardson extrapolation of two fine runs of the highest order available."""
    fine = {2: 40000, 4: 4000}[order]
    coarse_s, _ = orvex.run(fine // 2, order)
    fine_s, _ = orvex.run(fine, order)
    k = 2 ** order
    return (k * fine_s - coarse_s) / (k - 1)


def smallest_n(orvex, order, ref, target, hint):
    """Smallest n whose error meets the target, found from the error's power law."""
    cache = {}

    def error(n):
        if n not in cache:
            s, t = orvex.run(n, order)
            cache[n] = (float(np.max(np.abs(s - ref))), t)
        return cache[n]

    n = max(1, hint)
    e, _ = error(n)
    for _ in range(6):  # predict from the power law, then settle on the boundary
        guess = max(1, math.ceil(n * (e / target) ** (1.0 / order)))
        if guess == n:
            break
        n = guess
        e, _ = error(n)
    while error(n)[0] > target:
        n = math.ceil(n * 1.03) + 1
    while n > 1 and error(max(1, int(n / 1.03)))[0] <= target:
        n = max(1, int(n / 1.03))
    # Time the winner once more; the first run of a size may pay for cold caches.
    _, t = orvex.run(n, order)
    return n, min(t, error(n)[1])


def qutip_problem(n_qubits):
    import qutip
    ops = []
    for k in range(n_qubits):
        ops.append([qutip.tensor([p if i == k else qutip.qeye(2) for i in range(n_qubits)])
                    for p in (qutip.sigmax(), qutip.sigmay(), qutip.sigmaz())])
    h0 = 0
    for q in range(1, n_qubits + 1):
        h0 += -hz0(q) * ops[q - 1][2] / 2
    for q in range(1, n_qubits):
        for a in range(3):
            h0 += -J[a] * ops[q - 1][a] * ops[q][a] / 4
    # 0.5 sin(1.5 t + phi_q) = 0.5 [sin(1.5 t) cos(phi_q) + cos(1.5 t) sin(phi_q)]: two
    # coefficient functions for the whole drive, the fastest form QuTiP offers without Cython.
    a_op = sum(-0.5 * math.cos(phase(q)) * ops[q - 1][0] / 2 for q in range(1, n_qubits + 1))
    b_op = sum(-0.5 * math.sin(phase(q)) * ops[q - 1][0] / 2 for q in range(1, n_qubits + 1))
    h = [h0, [a_op, lambda t, *args: math.sin(1.5 * t)], [b_op, lambda t, *args: math.cos(1.5 * t)]]
    psi0 = qutip.tensor([qutip.basis(2, 0)] * n_qubits)
    e_ops = [op for triple in ops for op in triple]
    return h, psi0, e_ops


def qutip_run(problem, tol):
    import qutip
    h, psi0, e_ops = problem
    major = int(qutip.__version__.split(".")[0])
    if major >= 5:
        options = {"atol": tol, "rtol": tol, "nsteps": 10 ** 8}
    else:
        options = qutip.Options(atol=tol, rtol=tol, nsteps=10 ** 8)
    start = time.perf_counter()
    result = qutip.sesolve(h, psi0, [0.0, TAU], e_ops=e_ops, options=options)
    elapsed = time.perf_counter() - start
    values = np.array([np.real(e[-1]) for e in result.expect]).reshape(-1, 3)
    return values, elapsed


def loosest_tol(problem, ref, target):
    tol = 1e-4
    while tol > 1e-14:
        s, t = qutip_run(problem, tol)
        if np.max(np.abs(s - ref)) <= target:
            return tol, min(t, qutip_run(problem, tol)[1])
        tol /= math.sqrt(10)
    return None, None


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--cli", required=True, help="path of orvex-cli")
    parser.add_argument("--sizes", default="8,10,12,14,16")
    parser.add_argument("--targets", default="1e-6,1e-4,1e-3")
    parser.add_argument("--orders", default=None, help="2,4 (default: what the cli offers)")
    parser.add_argument("--orvex-only", action="store_true")
    args = parser.parse_args()

    cli = os.path.abspath(args.cli)
    usage = subprocess.run([cli, "--help"], capture_output=True, text=True).stdout
    orders = ([int(o) for o in args.orders.split(",")] if args.orders
              else ([2, 4] if "--order" in usage else [2]))
    sizes = [int(s) for s in args.sizes.split(",")]
    targets = [float(t) for t in args.targets.split(",")]

    print("| N | target | order | Orvex n | Orvex s | QuTiP tol | QuTiP s | ratio |")
    print("|---|---|---|---|---|---|---|---|")
    for n_qubits in sizes:
        orvex = Orvex(cli, n_qubits)
        try:
            ref = reference(orvex, max(orders))
            problem = None if args.orvex_only else qutip_problem(n_qubits)
            qutip_results = {}
            for target in targets:
                if problem is not None:
                    qutip_results[target] = loosest_tol(problem, ref, target)
                hint = 64
                for order in orders:
                    n, t = smallest_n(orvex, order, ref, target, hint)
                    tol, tq = qutip_results.get(target, (None, None))
                    ratio = f"{tq / t:.1f}x" if tq else "-"
                    qcols = f"{tol:.0e} | {tq:.3f}" if tq else "- | -"
                    print(f"| {n_qubits} | {target:.0e} | {order} | {n} | {t:.3f} | {qcols} | "
                          f"{ratio} |", flush=True)
        finally:
            orvex.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
