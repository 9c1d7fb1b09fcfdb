// Kernel bodies and their explicit instantiations for both threading policies.
#include "engine/kernels.h"

#include <algorithm>
#include <cstdint>

#include "engine/parallel.h"

namespace orvex::engine {

namespace {

using u64 = std::uint64_t;

// The block kernels are compiled twice, for baseline x86-64 and for AVX2 machines, and the
// loader picks the right one: portable binaries that still use wide vectors where present.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ORVEX_KERNEL __attribute__((target_clones("arch=x86-64-v3", "default")))
#else
#define ORVEX_KERNEL
#endif

// ---- Kernels on one contiguous block of 2^bits amplitudes (separate re/im arrays) ----

inline void Rotate(double& ar, double& ai, double& br, double& bi, const Amp* m) {
  const double xr = ar, xi = ai, yr = br, yi = bi;
  ar = m[0].real() * xr - m[0].imag() * xi + m[1].real() * yr - m[1].imag() * yi;
  ai = m[0].real() * xi + m[0].imag() * xr + m[1].real() * yi + m[1].imag() * yr;
  br = m[2].real() * xr - m[2].imag() * xi + m[3].real() * yr - m[3].imag() * yi;
  bi = m[2].real() * xi + m[2].imag() * xr + m[3].real() * yi + m[3].imag() * yr;
}

// The 2x2 update of `len` amplitude pairs (x_k, y_k) held in four separate runs.
struct Coeffs {
  double m0r, m0i, m1r, m1i, m2r, m2i, m3r, m3i;
  explicit Coeffs(const Amp* m)
      : m0r(m[0].real()), m0i(m[0].imag()), m1r(m[1].real()), m1i(m[1].imag()),
        m2r(m[2].real()), m2i(m[2].imag()), m3r(m[3].real()), m3i(m[3].imag()) {}
};

inline void RotateRuns(double* __restrict xr_, double* __restrict xi_, double* __restrict yr_,
                       double* __restrict yi_, u64 len, const Coeffs& c) {
  for (u64 k = 0; k < len; ++k) {
    const double xr = xr_[k], xi = xi_[k], yr = yr_[k], yi = yi_[k];
    xr_[k] = c.m0r * xr - c.m0i * xi + c.m1r * yr - c.m1i * yi;
    xi_[k] = c.m0r * xi + c.m0i * xr + c.m1r * yi + c.m1i * yr;
    yr_[k] = c.m2r * xr - c.m2i * xi + c.m3r * yr - c.m3i * yi;
    yi_[k] = c.m2r * xi + c.m2i * xr + c.m3r * yi + c.m3i * yr;
  }
}

ORVEX_KERNEL void BlockSingle(double* re, double* im, u64 size, int bit, const Amp* m) {
  const u64 s = u64{1} << bit;
  if (s == 1) {
    for (u64 i = 0; i < size; i += 2) Rotate(re[i], im[i], re[i + 1], im[i + 1], m);
    return;
  }
  const Coeffs c(m);
  for (u64 base = 0; base < size; base += 2 * s)
    RotateRuns(re + base, im + base, re + base + s, im + base + s, s, c);
}

// The pair factor on two bits of a block: runs of 2^lo amplitudes with both bits clear are
// updated together with their three partners.
ORVEX_KERNEL void BlockPair(double* re, double* im, u64 size, int bitA, int bitB, const Amp* m) {
  const int lo = std::min(bitA, bitB), hi = std::max(bitA, bitB);
  const u64 sl = u64{1} << lo, sh = u64{1} << hi;
  // |01> in Op means bit a set, bit b clear.
  const u64 sa = u64{1} << bitA, sb = u64{1} << bitB;
  const Amp* p = m;      // block on |00>, |11>
  const Amp* q = m + 4;  // block on |01>, |10>
  if (sl == 1) {
    for (u64 h = 0; h < size; h += 2 * sh)
      for (u64 i = h; i < h + sh; i += 2) {
        Rotate(re[i], im[i], re[i | sa | sb], im[i | sa | sb], p);
        Rotate(re[i | sa], im[i | sa], re[i | sb], im[i | sb], q);
      }
    return;
  }
  const Coeffs cp(p), cq(q);
  for (u64 h = 0; h < size; h += 2 * sh)
    for (u64 mid = h; mid < h + sh; mid += 2 * sl) {
      RotateRuns(re + mid, im + mid, re + (mid | sa | sb), im + (mid | sa | sb), sl, cp);
      RotateRuns(re + (mid | sa), im + (mid | sa), re + (mid | sb), im + (mid | sb), sl, cq);
    }
}

void BlockOp(double* re, double* im, u64 size, const Op& op) {
  if (op.kind == Op::Single)
    BlockSingle(re, im, size, op.a, op.m.data());
  else
    BlockPair(re, im, size, op.a, op.b, op.m.data());
}

// Sums over one block for the local bit `bit`: sz = sum |a0|^2 - |a1|^2,
// sx + i sy = sum conj(a0) a1.
ORVEX_KERNEL void BlockBloch(const double* __restrict re, const double* __restrict im, u64 size, int bit,
                double& sx, double& sy, double& sz) {
  const u64 s = u64{1} << bit;
  double x = 0, y = 0, z = 0;
  for (u64 base = 0; base < size; base += 2 * s) {
    const double* r0 = re + base;
    const double* i0 = im + base;
    const double* r1 = re + base + s;
    const double* i1 = im + base + s;
    for (u64 k = 0; k < s; ++k) {
      x += r0[k] * r1[k] + i0[k] * i1[k];
      y += r0[k] * i1[k] - i0[k] * r1[k];
      z += r0[k] * r0[k] + i0[k] * i0[k] - r1[k] * r1[k] - i1[k] * i1[k];
    }
  }
  sx += x;
  sy += y;
  sz += z;
}

ORVEX_KERNEL double BlockNorm(const double* __restrict re, const double* __restrict im, u64 size) {
  double n = 0;
  for (u64 i = 0; i < size; ++i) n += re[i] * re[i] + im[i] * im[i];
  return n;
}

// ---- Tiles: 2^W amplitudes whose indices share every bit outside a set of W bits ----

struct Tile {
  std::vector<int> bits;       // the W tile bits, ascending
  int run = 0;                 // bits 0..run-1 all belong to the tile (contiguous runs)
  std::vector<u64> runOffset;  // offset of each run in the state
  std::vector<int> outside;    // the other bits, ascending
  int localOf[64] = {};        // state bit -> bit inside the tile buffer
};

Tile MakeTile(int qubits, std::vector<int> bits) {
  std::sort(bits.begin(), bits.end());
  Tile t;
  t.bits = bits;
  while (t.run < static_cast<int>(bits.size()) && bits[t.run] == t.run) ++t.run;
  const int high = static_cast<int>(bits.size()) - t.run;
  t.runOffset.resize(u64{1} << high);
  for (u64 r = 0; r < t.runOffset.size(); ++r) {
    u64 off = 0;
    for (int k = 0; k < high; ++k)
      if (r >> k & 1) off |= u64{1} << bits[t.run + k];
    t.runOffset[r] = off;
  }
  for (int k = 0; k < static_cast<int>(bits.size()); ++k) t.localOf[bits[k]] = k;
  for (int b = 0; b < qubits; ++b)
    if (!std::binary_search(bits.begin(), bits.end(), b)) t.outside.push_back(b);
  return t;
}

u64 TileBase(const Tile& t, u64 index) {
  u64 base = 0;
  for (std::size_t k = 0; k < t.outside.size(); ++k)
    if (index >> k & 1) base |= u64{1} << t.outside[k];
  return base;
}

struct Buffer {
  std::vector<double> re, im;
  void Fit(u64 size) {
    if (re.size() < size) {
      re.resize(size);
      im.resize(size);
    }
  }
};

Buffer& ThreadBuffer() {
  thread_local Buffer buffer;
  return buffer;
}

void Gather(const Tile& t, u64 base, const double* re, const double* im, double* bre,
            double* bim) {
  const u64 len = u64{1} << t.run;
  for (u64 r = 0; r < t.runOffset.size(); ++r) {
    const u64 from = base + t.runOffset[r];
    std::copy(re + from, re + from + len, bre + r * len);
    std::copy(im + from, im + from + len, bim + r * len);
  }
}

void Scatter(const Tile& t, u64 base, double* re, double* im, const double* bre,
             const double* bim) {
  const u64 len = u64{1} << t.run;
  for (u64 r = 0; r < t.runOffset.size(); ++r) {
    const u64 to = base + t.runOffset[r];
    std::copy(bre + r * len, bre + (r + 1) * len, re + to);
    std::copy(bim + r * len, bim + (r + 1) * len, im + to);
  }
}

// Amplitudes per task of the literal sweeps.
constexpr int kChunkBits = 14;
// Contiguous run every tile keeps, so gathers copy whole cache lines and more.
constexpr int kMinRunBits = 6;

struct Group {
  std::vector<int> bits;
  std::vector<const Op*> ops;
};

std::vector<Group> PlanGroups(int qubits, const std::vector<Op>& ops, int width) {
  std::vector<Group> groups;
  const int minRun = std::min(kMinRunBits, width - 2);
  auto fresh = [&] {
    Group g;
    for (int b = 0; b < minRun; ++b) g.bits.push_back(b);
    return g;
  };
  Group current = fresh();
  auto with = [](std::vector<int> bits, const Op& op) {
    auto add = [&](int b) {
      if (std::find(bits.begin(), bits.end(), b) == bits.end()) bits.push_back(b);
    };
    add(op.a);
    if (op.kind == Op::Pair) add(op.b);
    return bits;
  };
  for (const Op& op : ops) {
    auto bits = with(current.bits, op);
    if (static_cast<int>(bits.size()) > width) {
      groups.push_back(std::move(current));
      current = fresh();
      bits = with(current.bits, op);
    }
    current.bits = std::move(bits);
    current.ops.push_back(&op);
  }
  if (!current.ops.empty()) groups.push_back(std::move(current));
  // Fill every tile up to the full width with the lowest free bits (longer runs).
  for (Group& g : groups)
    for (int b = 0; static_cast<int>(g.bits.size()) < width && b < qubits; ++b)
      if (std::find(g.bits.begin(), g.bits.end(), b) == g.bits.end()) g.bits.push_back(b);
  return groups;
}

} // namespace

template <class For>
void ApplyLiteral(const For& policy, StateVector& psi, const Op& op) {
  double* re = psi.Re();
  double* im = psi.Im();
  const int n = psi.Qubits();
  // Iterate over the indices with the factor's bits clear; task c takes a fixed range.
  const int freeBits = n - (op.kind == Op::Single ? 1 : 2);
  const int chunkBits = std::min(kChunkBits, freeBits);
  const u64 tasks = u64{1} << (freeBits - chunkBits);
  int lo = op.a, hi = op.a;
  if (op.kind == Op::Pair) {
    lo = std::min(op.a, op.b);
    hi = std::max(op.a, op.b);
  }
  auto insertZero = [](u64 r, int bit) {
    const u64 low = r & ((u64{1} << bit) - 1);
    return ((r >> bit) << (bit + 1)) | low;
  };
  const u64 sa = u64{1} << op.a, sb = u64{1} << op.b;
  policy.Run(tasks, [&](u64 c) {
    const u64 begin = c << chunkBits, end = (c + 1) << chunkBits;
    for (u64 r = begin; r < end; ++r) {
      if (op.kind == Op::Single) {
        const u64 i = insertZero(r, lo);
        Rotate(re[i], im[i], re[i | sa], im[i | sa], op.m.data());
      } else {
        const u64 i = insertZero(insertZero(r, lo), hi);
        Rotate(re[i], im[i], re[i | sa | sb], im[i | sa | sb], op.m.data());
        Rotate(re[i | sa], im[i | sa], re[i | sb], im[i | sb], op.m.data() + 4);
      }
    }
  });
}

int SweepCount(int qubits, const std::vector<Op>& ops, int tileBits) {
  if (ops.empty()) return 0;
  if (qubits <= tileBits) return 1;
  return static_cast<int>(PlanGroups(qubits, ops, tileBits).size());
}

template <class For>
void ApplyOps(const For& policy, StateVector& psi, const std::vector<Op>& ops, int tileBits) {
  if (ops.empty()) return;
  const int n = psi.Qubits();
  if (n <= tileBits) {
    // The whole register is one tile: apply in place, one factor after the other. (Cutting
    // a register this small over the threads costs more in gathers and hand-overs than it
    // gains.)
    for (const Op& op : ops) BlockOp(psi.Re(), psi.Im(), psi.Size(), op);
    return;
  }
  for (const Group& g : PlanGroups(n, ops, tileBits)) {
    const Tile tile = MakeTile(n, g.bits);
    std::vector<Op> local;
    for (const Op* op : g.ops) {
      Op l = *op;
      l.a = tile.localOf[op->a];
      if (op->kind == Op::Pair) l.b = tile.localOf[op->b];
      local.push_back(l);
    }
    const u64 tileSize = u64{1} << tileBits;
    const u64 tiles = u64{1} << (n - tileBits);
    double* re = psi.Re();
    double* im = psi.Im();
    policy.Run(tiles, [&](u64 t) {
      Buffer& buf = ThreadBuffer();
      buf.Fit(tileSize);
      const u64 base = TileBase(tile, t);
      Gather(tile, base, re, im, buf.re.data(), buf.im.data());
      for (const Op& op : local) BlockOp(buf.re.data(), buf.im.data(), tileSize, op);
      Scatter(tile, base, re, im, buf.re.data(), buf.im.data());
    });
  }
}

template <class For>
Expectations Measure(const For& policy, const StateVector& psi, int tileBits) {
  Expectations e;
  const int n = psi.Qubits();
  e.qubits.resize(n);
  if (psi.Empty()) return e;
  std::vector<double> sx(n), sy(n), sz(n);
  if (n <= tileBits) {
    for (int q = 0; q < n; ++q) BlockBloch(psi.Re(), psi.Im(), psi.Size(), q, sx[q], sy[q], sz[q]);
    e.norm2 = BlockNorm(psi.Re(), psi.Im(), psi.Size());
  } else {
    // First sweep: the low tileBits qubits and the norm; then the high qubits in groups
    // that share tiles with a short run of low bits.
    const int minRun = std::min(kMinRunBits, tileBits - 2);
    std::vector<std::vector<int>> measured;
    std::vector<std::vector<int>> tileBitsOf;
    {
      std::vector<int> bits;
      for (int b = 0; b < tileBits; ++b) bits.push_back(b);
      measured.push_back(bits);
      tileBitsOf.push_back(bits);
    }
    for (int b = tileBits; b < n;) {
      std::vector<int> bits, meas;
      for (int k = 0; k < minRun; ++k) bits.push_back(k);
      for (; b < n && static_cast<int>(bits.size()) < tileBits; ++b) {
        bits.push_back(b);
        meas.push_back(b);
      }
      for (int k = minRun; static_cast<int>(bits.size()) < tileBits; ++k) bits.push_back(k);
      measured.push_back(meas);
      tileBitsOf.push_back(bits);
    }
    const u64 tileSize = u64{1} << tileBits;
    const u64 tiles = u64{1} << (n - tileBits);
    for (std::size_t g = 0; g < measured.size(); ++g) {
      const Tile tile = MakeTile(n, tileBitsOf[g]);
      const auto& meas = measured[g];
      const std::size_t stride = 3 * meas.size() + 1;
      std::vector<double> partial(tiles * stride, 0.0);
      policy.Run(tiles, [&](u64 t) {
        Buffer& buf = ThreadBuffer();
        buf.Fit(tileSize);
        const u64 base = TileBase(tile, t);
        Gather(tile, base, psi.Re(), psi.Im(), buf.re.data(), buf.im.data());
        double* out = &partial[t * stride];
        for (std::size_t k = 0; k < meas.size(); ++k)
          BlockBloch(buf.re.data(), buf.im.data(), tileSize, tile.localOf[meas[k]],
                     out[3 * k], out[3 * k + 1], out[3 * k + 2]);
        if (g == 0) out[3 * meas.size()] = BlockNorm(buf.re.data(), buf.im.data(), tileSize);
      });
      // Combine in tile order: the same sums whatever the number of threads.
      for (u64 t = 0; t < tiles; ++t) {
        const double* in = &partial[t * stride];
        for (std::size_t k = 0; k < meas.size(); ++k) {
          sx[meas[k]] += in[3 * k];
          sy[meas[k]] += in[3 * k + 1];
          sz[meas[k]] += in[3 * k + 2];
        }
        if (g == 0) e.norm2 += in[3 * meas.size()];
      }
    }
  }
  for (int q = 0; q < n; ++q) e.qubits[q] = {2 * sx[q], 2 * sy[q], sz[q]};
  return e;
}

template void ApplyLiteral<ParallelFor>(const ParallelFor&, StateVector&, const Op&);
template void ApplyLiteral<SequentialFor>(const SequentialFor&, StateVector&, const Op&);
template void ApplyOps<ParallelFor>(const ParallelFor&, StateVector&, const std::vector<Op>&, int);
template void ApplyOps<SequentialFor>(const SequentialFor&, StateVector&, const std::vector<Op>&,
                                      int);
template Expectations Measure<ParallelFor>(const ParallelFor&, const StateVector&, int);
template Expectations Measure<SequentialFor>(const SequentialFor&, const StateVector&, int);

} // namespace orvex::engine
