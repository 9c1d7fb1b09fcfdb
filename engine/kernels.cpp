// Kernel bodies and their explicit instantiations for both threading policies.
#include "engine/kernels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

#include "engine/parallel.h"

namespace orvex::engine {

namespace {

using u64 = std::uint64_t;

// The block kernels are compiled for baseline x86-64, AVX2 and AVX-512 machines, and the
// loader picks the right one: portable binaries that still use wide vectors where present.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ORVEX_KERNEL __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
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

// The factor on the amplitude at index i, whose bits of the factor are clear, and on its
// partners (sa, sb: the masks of bits a and b).
inline void ApplyAt(double* re, double* im, u64 i, u64 sa, u64 sb, const Op& op) {
  if (op.kind == Op::Single) {
    Rotate(re[i], im[i], re[i | sa], im[i | sa], op.m.data());
    return;
  }
  Rotate(re[i], im[i], re[i | sa | sb], im[i | sa | sb], op.m.data());
  Rotate(re[i | sa], im[i | sa], re[i | sb], im[i | sb], op.m.data() + 4);
}

// Four and eight doubles as one value: the compiler's vector extension, so the kernels below
// are vector code on every target (a plain loop over lanes gets shuffled rather than
// vectorised).
typedef double V4 __attribute__((vector_size(4 * sizeof(double))));
typedef double V8 __attribute__((vector_size(8 * sizeof(double))));

template <class V>
inline void LoadV(V& v, const double* p) { std::memcpy(&v, p, sizeof v); }
template <class V>
inline void StoreV(double* p, const V& v) { std::memcpy(p, &v, sizeof v); }

#if defined(__clang__)
#define ORVEX_SHUFFLE8(a, b, ...) __builtin_shufflevector(a, b, __VA_ARGS__)
#else
typedef long long V8i __attribute__((vector_size(8 * sizeof(long long))));
#define ORVEX_SHUFFLE8(a, b, ...) __builtin_shuffle(a, b, (V8i){__VA_ARGS__})
#endif

// Lane k of `to` takes lane k ^ kMask of v (kMask = 0 copies v).
template <int kMask>
__attribute__((always_inline)) inline void XorLanes(const V8& v, V8& to) {
  if constexpr (kMask == 0)
    to = v;
  else
    to = ORVEX_SHUFFLE8(v, v, 0 ^ kMask, 1 ^ kMask, 2 ^ kMask, 3 ^ kMask, 4 ^ kMask, 5 ^ kMask,
                        6 ^ kMask, 7 ^ kMask);
}

// Every factor maps each amplitude to a combination of itself and one partner: a single-qubit
// factor's partner differs in its bit, a pair factor's in both bits (|00> with |11>, |01>
// with |10>). So all kernels are one update lane by lane, v <- d v + o w, with w the lanes of
// the partners and (d, o) the amplitude's row of its 2x2 block.
//
// The rows of eight lanes are kept as 32 plain doubles (the real and imaginary parts of d,
// then of o), read into vectors inside the kernels: a vector type's alignment depends on the
// instruction set a function is compiled for, and the kernels are compiled for several.
struct MixV {
  V8 dr, di, or_, oi;
  explicit MixV(const double* c) {
    LoadV(dr, c);
    LoadV(di, c + 8);
    LoadV(or_, c + 16);
    LoadV(oi, c + 24);
  }
};

// (d, o) of an amplitude whose bits of the factor have values va (bit a) and vb (bit b; not
// used by a single-qubit factor).
void RowOf(const Op& op, bool va, bool vb, Amp& d, Amp& o) {
  const Amp* m = op.m.data();
  int r = va;
  if (op.kind == Op::Pair) {
    // Block on |00>, |11> (row 1: |11>) or on |01>, |10> (row 0: bit a set).
    r = va == vb ? va : vb;
    if (va != vb) m += 4;
  }
  d = m[3 * r];
  o = m[1 + r];
}

// The rows of eight lanes (32 doubles into c) from the bits of each lane's amplitude:
// bits(k) gives (va, vb).
template <class F>
void MixOf(const Op& op, F bits, double* c) {
  for (int k = 0; k < 8; ++k) {
    const auto [va, vb] = bits(k);
    Amp d, o;
    RowOf(op, va, vb, d, o);
    c[k] = d.real(), c[8 + k] = d.imag(), c[16 + k] = o.real(), c[24 + k] = o.imag();
  }
}

// c: a MixV, or the same four parts as plain numbers for a row shared by every lane.
template <class C>
__attribute__((always_inline)) inline void Mix(V8& vr, V8& vi, const V8& wr, const V8& wi,
                                               const C& c) {
  const V8 r = c.dr * vr - c.di * vi + c.or_ * wr - c.oi * wi;
  vi = c.dr * vi + c.di * vr + c.or_ * wi + c.oi * wr;
  vr = r;
}

// Partners inside a vector (a single-qubit factor on bit 0, 1 or 2, or a pair factor on two
// of them): lane k meets lane k ^ kMask.
template <int kMask>
ORVEX_KERNEL void InVectorPass(double* __restrict re, double* __restrict im, u64 size,
                               const double* mix) {
  const MixV c(mix);
  for (u64 g = 0; g < size; g += 8) {
    V8 vr, vi, wr, wi;
    LoadV(vr, re + g);
    LoadV(vi, im + g);
    XorLanes<kMask>(vr, wr);
    XorLanes<kMask>(vi, wi);
    Mix(vr, vi, wr, wi, c);
    StoreV(re + g, vr);
    StoreV(im + g, vi);
  }
}

// Index j with a zero inserted at each of two bits (masks m1 and m2 of the bits below each,
// m2 = ~0 for only one): the kernels on two bits take their positions in one flat loop, so
// that short runs cost no loop of their own.
__attribute__((always_inline)) inline u64 Spread(u64 j, u64 m1, u64 m2) {
  const u64 k = ((j & ~m1) << 1) | (j & m1);
  return ((k & ~m2) << 1) | (k & m2);
}

// The partner vectors x at dx and y at dy, lane k of x meeting lane k ^ kMask of y, updated
// in place by their rows cx and cy (see Mix).
template <int kMask, class C>
__attribute__((always_inline)) inline void MixPartners(double* __restrict re,
                                                       double* __restrict im, u64 dx, u64 dy,
                                                       const C& cx, const C& cy) {
  V8 xr, xi, yr, yi;
  LoadV(xr, re + dx);
  LoadV(xi, im + dx);
  LoadV(yr, re + dy);
  LoadV(yi, im + dy);
  V8 sxr, sxi, syr, syi;
  XorLanes<kMask>(xr, sxr);
  XorLanes<kMask>(xi, sxi);
  XorLanes<kMask>(yr, syr);
  XorLanes<kMask>(yi, syi);
  Mix(xr, xi, syr, syi, cx);
  Mix(yr, yi, sxr, sxi, cy);
  StoreV(re + dx, xr);
  StoreV(im + dx, xi);
  StoreV(re + dy, yr);
  StoreV(im + dy, yi);
}

// Partners in two vectors: x at position k and y at k + dy - dx, lane k of x meeting lane
// k ^ kMask of y, the positions those of Spread.
template <int kMask>
ORVEX_KERNEL void CrossPass(double* __restrict re, double* __restrict im, u64 positions, u64 m1,
                            u64 m2, u64 dx, u64 dy, const double* mx, const double* my) {
  const MixV cx(mx), cy(my);
  for (u64 j = 0; j < positions; j += 8) {
    const u64 k = Spread(j, m1, m2);
    MixPartners<kMask>(re + k, im + k, dx, dy, cx, cy);
  }
}

template <int kMask>
void Cross(double* re, double* im, u64 positions, int b1, int b2, u64 dx, u64 dy,
           const double* cx, const double* cy) {
  const u64 m1 = (u64{1} << b1) - 1, m2 = b2 < 0 ? ~u64{0} : (u64{1} << b2) - 1;
  CrossPass<kMask>(re, im, positions, m1, m2, dx, dy, cx, cy);
}

// The smallest block of the vector kernels (every tile is at least this large).
constexpr int kMinVectorBits = 5;

// A general 4x4 factor on bits lo < hi, both above a vector: the four runs of each position
// (neither bit, bit lo, bit hi, both) in and out at once. q: the matrix, row-major, rows and
// columns |bit lo + 2 bit hi>, as (re, im) pairs.
ORVEX_KERNEL void QuadPass(double* __restrict re, double* __restrict im, u64 positions, u64 m1,
                           u64 m2, u64 sl, u64 sh, const double* matrix) {
  // A copy the stores cannot reach: its broadcasts are made once, before the loop, and the
  // multiply-adds take them from memory as operands.
  double q[32];
  std::memcpy(q, matrix, sizeof q);
  const u64 off[4] = {0, sl, sh, sl | sh};
  for (u64 j = 0; j < positions; j += 8) {
    const u64 k = Spread(j, m1, m2);
    V8 vr[4], vi[4], outR[4], outI[4];
    for (int c = 0; c < 4; ++c) {
      LoadV(vr[c], re + k + off[c]);
      LoadV(vi[c], im + k + off[c]);
    }
    // Column by column, so that the eight sums advance side by side: each is a chain of
    // dependent multiply-adds, and eight in flight cover the instruction's latency.
    for (int r = 0; r < 4; ++r) {
      outR[r] = q[8 * r] * vr[0];
      outI[r] = q[8 * r] * vi[0];
    }
    for (int c = 0; c < 4; ++c)
      for (int r = 0; r < 4; ++r) {
        const double* row = q + 8 * r;
        if (c > 0) {
          outR[r] += row[2 * c] * vr[c];
          outI[r] += row[2 * c] * vi[c];
        }
        outR[r] -= row[2 * c + 1] * vi[c];
        outI[r] += row[2 * c + 1] * vr[c];
      }
    for (int r = 0; r < 4; ++r) {
      StoreV(re + k + off[r], outR[r]);
      StoreV(im + k + off[r], outI[r]);
    }
  }
}

// A pair factor on bits lo < hi, both above a vector, in one pass over the four runs of each
// position: the block on |00>, |11> is c I + i s X (k[0..1]), the block on |01>, |10> has d on
// its diagonal and o off it (k[2..5], re and im).
ORVEX_KERNEL void RealPairPass(double* __restrict re, double* __restrict im, u64 positions,
                               u64 m1, u64 m2, u64 sl, u64 sh, const double* k6) {
  const double c = k6[0], s = k6[1];
  const struct {
    double dr, di, or_, oi;
  } odd = {k6[2], k6[3], k6[4], k6[5]};
  for (u64 j = 0; j < positions; j += 8) {
    const u64 k = Spread(j, m1, m2);
    V8 xr, xi, yr, yi;  // |00>, |11>
    LoadV(xr, re + k);
    LoadV(xi, im + k);
    LoadV(yr, re + k + (sl | sh));
    LoadV(yi, im + k + (sl | sh));
    StoreV(re + k, c * xr - s * yi);
    StoreV(im + k, c * xi + s * yr);
    StoreV(re + k + (sl | sh), c * yr - s * xi);
    StoreV(im + k + (sl | sh), c * yi + s * xr);
    MixPartners<0>(re + k, im + k, sl, sh, odd, odd);  // |01> (bit lo), |10>
  }
}

// (or, oi) += c v lane by lane, c read from (re[8], im[8]) at p.
__attribute__((always_inline)) inline void LaneMulAdd(V8& outR, V8& outI, const double* p,
                                                      const V8& vr, const V8& vi) {
  V8 cr, ci;
  LoadV(cr, p);
  LoadV(ci, p + 8);
  outR += cr * vr;
  outR -= ci * vi;
  outI += cr * vi;
  outI += ci * vr;
}

// A general 4x4 factor on two bits inside a vector: lane k takes the lanes k, k ^ lo, k ^ hi
// and k ^ (lo | hi), each with coefficients per lane (c: four (re[8], im[8]) in that order).
template <int kLo, int kHi>
ORVEX_KERNEL void InVectorQuad(double* re, double* im, u64 size, const double* c) {
  for (u64 g = 0; g < size; g += 8) {
    V8 v[2][4];
    LoadV(v[0][0], re + g);
    LoadV(v[1][0], im + g);
    for (int part = 0; part < 2; ++part) {
      XorLanes<kLo>(v[part][0], v[part][1]);
      XorLanes<kHi>(v[part][0], v[part][2]);
      XorLanes<kLo | kHi>(v[part][0], v[part][3]);
    }
    V8 outR = {}, outI = {};
    for (int d = 0; d < 4; ++d) LaneMulAdd(outR, outI, c + 16 * d, v[0][d], v[1][d]);
    StoreV(re + g, outR);
    StoreV(im + g, outI);
  }
}

// A general 4x4 factor on bit lo inside a vector and bit hi above it: x (bit hi clear) and
// y (set) each take x, x with lanes k ^ lo, y and y with lanes k ^ lo, with coefficients per
// lane (c: those four for x, then for y). The positions insert a zero at hi (mask m).
template <int kLo>
ORVEX_KERNEL void CrossQuad(double* re, double* im, u64 positions, u64 m, u64 sh,
                            const double* c) {
  for (u64 j = 0; j < positions; j += 8) {
    const u64 k = ((j & ~m) << 1) | (j & m);
    V8 v[2][4];  // re, im of x, x flipped, y, y flipped
    LoadV(v[0][0], re + k);
    LoadV(v[1][0], im + k);
    LoadV(v[0][2], re + k + sh);
    LoadV(v[1][2], im + k + sh);
    for (int part = 0; part < 2; ++part) {
      XorLanes<kLo>(v[part][0], v[part][1]);
      XorLanes<kLo>(v[part][2], v[part][3]);
    }
    V8 outR[2] = {}, outI[2] = {};
    for (int o = 0; o < 2; ++o)
      for (int d = 0; d < 4; ++d)
        LaneMulAdd(outR[o], outI[o], c + 16 * (4 * o + d), v[0][d], v[1][d]);
    StoreV(re + k, outR[0]);
    StoreV(im + k, outI[0]);
    StoreV(re + k + sh, outR[1]);
    StoreV(im + k + sh, outI[1]);
  }
}

using Mat4 = std::array<Amp, 16>;  // row-major, rows and columns |bit lo + 2 bit hi>

ORVEX_KERNEL Mat4 Times(const Mat4& x, const Mat4& y) {
  // Plain real arithmetic: the library's complex product checks every result for the
  // infinities of C's annex G, which costs more than the product here.
  double r[32] = {};
  for (int i = 0; i < 4; ++i)
    for (int k = 0; k < 4; ++k) {
      const double fr = x[4 * i + k].real(), fi = x[4 * i + k].imag();
      if (fr == 0 && fi == 0) continue;  // the factors are mostly zeros
      for (int j = 0; j < 4; ++j) {
        const double yr = y[4 * k + j].real(), yi = y[4 * k + j].imag();
        r[2 * (4 * i + j)] += fr * yr - fi * yi;
        r[2 * (4 * i + j) + 1] += fr * yi + fi * yr;
      }
    }
  Mat4 m;
  for (int i = 0; i < 16; ++i) m[i] = Amp(r[2 * i], r[2 * i + 1]);
  return m;
}

// A single-qubit factor on the lower (which = 0) or upper bit of a pair, as a 4x4.
Mat4 OnOneBit(const Op& single, int which) {
  const auto& m = single.m;
  Mat4 r{};
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j)
      if (((i ^ j) >> (1 - which) & 1) == 0)
        r[4 * i + j] = m[2 * (i >> which & 1) + (j >> which & 1)];
  return r;
}

// A factor made ready for the block kernels once, rather than on every block: its bits and
// the rows of its lanes, or, for a product of factors on two bits, its 4x4 and the lanes'
// coefficients of that.
struct Kernel {
  Op op;
  int lo = 0, hi = 0;
  bool quad = false;
  // A pair factor on two bits above a vector whose block on |00>, |11> is c I + i s X with
  // c and s real (its phase taken out into another kernel): c[0..1] = c, s, and c[2..5] the
  // block on |01>, |10> as d (re, im) and o (re, im).
  bool real00 = false;
  Mat4 m4{};  // quad: the 4x4 (as (re, im) pairs, QuadPass's layout)
  // The lanes' coefficients: rows of 32 doubles (MixV) for the vectors of a 2x2 pass, x then
  // y (see BlockOp), or those of a quad with bit lo inside a vector (InVectorQuad, CrossQuad).
  alignas(64) double c[128];

  explicit Kernel(const Op& f, bool realBlock = false) : op(f), real00(realBlock) {
    const bool pair = op.kind == Op::Pair;
    lo = pair ? std::min(op.a, op.b) : op.a;
    hi = pair ? std::max(op.a, op.b) : op.a;
    if (real00) {
      const double k[6] = {op.m[0].real(), op.m[1].imag(), op.m[4].real(), op.m[4].imag(),
                           op.m[5].real(), op.m[5].imag()};
      std::copy(k, k + 6, c);
      return;
    }
    if (hi < 3) {
      MixOf(op, [&](int k) { return At(static_cast<u64>(k)); }, c);
    } else if (!pair || lo < 3) {
      const u64 sl = pair ? u64{1} << lo : 0, sh = u64{1} << hi;
      MixOf(op, [&](int k) { return At(static_cast<u64>(k) & sl); }, c);
      MixOf(op, [&](int k) { return At((static_cast<u64>(k) & sl) | sh); }, c + 32);
    } else {
      // Both bits above a vector: one row for all lanes, for |00>, |11>, |01> and |10>.
      const u64 rows[4] = {0, Sa() | Sb(), Sa(), Sb()};
      for (int r = 0; r < 4; ++r) MixOf(op, [&](int) { return At(rows[r]); }, c + 32 * r);
    }
  }
  Kernel(int bitLo, int bitHi, const Mat4& m) : lo(bitLo), hi(bitHi), quad(true), m4(m) {
    op.kind = Op::Pair, op.a = lo, op.b = hi;
    if (lo >= 3) return;
    // Lane k's coefficient of source d, for each output vector.
    auto set = [&](int slot, int k, Amp v) {
      c[16 * slot + k] = v.real();
      c[16 * slot + 8 + k] = v.imag();
    };
    for (int k = 0; k < 8; ++k) {
      const int l = k >> lo & 1;
      if (hi < 3) {
        const int r = l + 2 * (k >> hi & 1);
        for (int d = 0; d < 4; ++d) set(d, k, m4[4 * r + (r ^ d)]);
      } else {
        for (int o = 0; o < 2; ++o)
          for (int d = 0; d < 4; ++d)
            set(4 * o + d, k, m4[4 * (l + 2 * o) + ((l ^ (d & 1)) + 2 * (d >> 1))]);
      }
    }
  }
  u64 Sa() const { return u64{1} << op.a; }
  u64 Sb() const { return op.kind == Op::Pair ? u64{1} << op.b : 0; }
  // The values of (bit a, bit b) of the amplitude at index i.
  std::pair<bool, bool> At(u64 i) const { return {(i & Sa()) != 0, (i & Sb()) != 0}; }
};

// Kernel lists take a few KiB per factor. A thread keeps the storage of the largest list it
// let go (Recycle) for the next one it prepares, rather than have fresh pages zeroed and
// mapped for every plan.
std::vector<Kernel>& SpareKernels() {
  thread_local std::vector<Kernel> spare;
  return spare;
}

void Recycle(std::vector<Kernel>& kernels) {
  if (kernels.capacity() <= SpareKernels().capacity()) return;
  kernels.clear();
  SpareKernels().swap(kernels);
}

// A pair factor as a 4x4 on (lo, hi) = its lower and upper bit.
Mat4 PairMatrix(const Op& op) {
  const int lo = std::min(op.a, op.b);
  Mat4 m{};
  for (int r = 0; r < 4; ++r) {
    const bool vlo = r & 1, vhi = r & 2;
    Amp d, o;
    RowOf(op, lo == op.a ? vlo : vhi, lo == op.a ? vhi : vlo, d, o);
    m[4 * r + r] = d;
    m[4 * r + (r ^ 3)] = o;
  }
  return m;
}

// The kernels of a factor list. A single-qubit factor joins a neighbouring pair factor
// (factors on other qubits in between commute with it), and a pair factor joins the one
// before it on the same two bits: one 4x4 pass instead of two or three passes of 2x2 blocks.
// The product is the list's, up to rounding.
std::vector<Kernel> Prepare(const std::vector<Op>& ops) {
  struct Joined {
    Op op;              // a factor of the list (bits a, b)
    bool quad = false;  // or a product of factors, m on its lower and upper bit
    bool real00 = false;  // a pair factor whose block on |00>, |11> is c I + i s X
    Mat4 m{};
    Mat4 Matrix() const { return quad ? m : PairMatrix(op); }
  };
  thread_local std::vector<Joined> out;  // kept, with its pages, for the next list
  out.clear();
  constexpr int kBits = 64;
  std::array<Op, kBits> pending;  // single-qubit factors not yet placed
  std::array<bool, kBits> has{};
  std::array<int, kBits> last;    // the last kernel on each bit
  last.fill(-1);
  auto take = [&](Joined& j, int bit, bool after) {
    // Pending factor on `bit` into j, before it (the pair comes later in the list) or after.
    const Mat4 s = OnOneBit(pending[bit], bit == std::min(j.op.a, j.op.b) ? 0 : 1);
    j.m = after ? Times(s, j.Matrix()) : Times(j.Matrix(), s);
    j.quad = true;
    has[bit] = false;
  };
  for (const Op& op : ops) {
    if (op.kind == Op::Single) {
      pending[op.a] = has[op.a] ? Then(pending[op.a], op) : op;
      has[op.a] = true;
      continue;
    }
    const int prev = last[op.a];
    if (prev >= 0 && prev == last[op.b] && !has[op.a] && !has[op.b]) {
      Joined& p = out[static_cast<std::size_t>(prev)];
      p.m = Times(PairMatrix(op), p.Matrix());
      p.quad = true;
      continue;
    }
    Joined& j = out.emplace_back();
    j.op = op;
    if (has[op.a]) take(j, op.a, false);
    if (has[op.b]) take(j, op.b, false);
    last[op.a] = last[op.b] = static_cast<int>(out.size()) - 1;
  }
  for (int bit = 0; bit < kBits; ++bit) {
    if (!has[bit]) continue;
    if (last[bit] >= 0) {
      take(out[static_cast<std::size_t>(last[bit])], bit, true);
    } else {
      out.emplace_back().op = pending[bit];
    }
  }
  // A pair factor's blocks are each a phase times c I + i s X. The phase of the block on
  // |00>, |11>, divided out of the whole factor, leaves that block real and imaginary parts
  // that need half the multiplications; the product of these phases is a global phase,
  // multiplied into the first kernel that keeps a general matrix.
  Amp phase = 1;
  Joined* general = nullptr;
  for (Joined& j : out) {
    if (!j.quad && j.op.kind == Op::Pair && std::min(j.op.a, j.op.b) >= 3) {
      auto& m = j.op.m;
      const Amp d = m[0], o = m[1];
      const double ad = std::abs(d), ao = std::abs(o), r = std::max(ad, ao);
      // Symmetric blocks with o / d imaginary: what every pair factor and product of pair
      // factors on the same bits is.
      if (r > 0 && m[3] == d && m[2] == o && m[7] == m[4] && m[6] == m[5] &&
          std::abs((o * std::conj(d)).real()) <= 1e-15 * r * r) {
        const Amp g = ad > ao ? d / ad : o / Amp(0, ao);
        for (Amp& x : m) x /= g;
        m[0] = m[3] = m[0].real();
        m[1] = m[2] = Amp(0, m[1].imag());
        phase *= g;
        j.real00 = true;
        continue;
      }
    }
    if (!general) general = &j;
  }
  if (phase != Amp(1)) {
    if (!general) {
      // Nothing else to carry the phase: the last pair keeps its general form.
      general = &out.back();
      general->real00 = false;
    }
    if (general->quad)
      for (Amp& x : general->m) x *= phase;
    else
      for (Amp& x : general->op.m) x *= phase;
  }
  std::vector<Kernel> kernels;
  kernels.swap(SpareKernels());
  kernels.clear();
  kernels.reserve(out.size());
  for (const Joined& j : out) {
    if (j.quad)
      kernels.emplace_back(std::min(j.op.a, j.op.b), std::max(j.op.a, j.op.b), j.m);
    else
      kernels.emplace_back(j.op, j.real00);
  }
  return kernels;
}

// Blocks too small for the vector kernels (registers of up to four qubits) take the
// factors as they are, without kernels: there is nothing to gain from joining them.
void BlockOpSmall(double* re, double* im, u64 size, const Op& op) {
  const u64 sa = u64{1} << op.a, sb = op.kind == Op::Pair ? u64{1} << op.b : 0;
  for (u64 i = 0; i < size; ++i)
    if (!(i & (sa | sb))) ApplyAt(re, im, i, sa, sb, op);
}

void BlockOp(double* re, double* im, u64 size, const Kernel& k) {
  const u64 sa = k.Sa(), sb = k.Sb(), sl = u64{1} << k.lo, sh = u64{1} << k.hi;
  if (k.real00) return RealPairPass(re, im, size / 4, sl - 1, sh - 1, sl, sh, k.c);
  if (k.quad) {
    if (k.hi < 3) {
      switch (sl | sh) {
        case 3: return InVectorQuad<1, 2>(re, im, size, k.c);
        case 5: return InVectorQuad<1, 4>(re, im, size, k.c);
        default: return InVectorQuad<2, 4>(re, im, size, k.c);
      }
    }
    if (k.lo < 3) {
      switch (sl) {
        case 1: return CrossQuad<1>(re, im, size / 2, sh - 1, sh, k.c);
        case 2: return CrossQuad<2>(re, im, size / 2, sh - 1, sh, k.c);
        default: return CrossQuad<4>(re, im, size / 2, sh - 1, sh, k.c);
      }
    }
    return QuadPass(re, im, size / 4, sl - 1, sh - 1, sl, sh,
                    reinterpret_cast<const double*>(k.m4.data()));
  }
  if (k.hi < 3) {
    switch (sa | sb) {
      case 1: return InVectorPass<1>(re, im, size, k.c);
      case 2: return InVectorPass<2>(re, im, size, k.c);
      case 3: return InVectorPass<3>(re, im, size, k.c);
      case 4: return InVectorPass<4>(re, im, size, k.c);
      case 5: return InVectorPass<5>(re, im, size, k.c);
      default: return InVectorPass<6>(re, im, size, k.c);
    }
  }
  if (k.op.kind == Op::Single || k.lo < 3) {
    // x: the amplitudes with bit hi clear, y: their partners with it set (and bit lo, if any,
    // flipped by the lanes).
    switch (k.op.kind == Op::Single ? 0 : 1 << k.lo) {
      case 0: return Cross<0>(re, im, size / 2, k.hi, -1, 0, sh, k.c, k.c + 32);
      case 1: return Cross<1>(re, im, size / 2, k.hi, -1, 0, sh, k.c, k.c + 32);
      case 2: return Cross<2>(re, im, size / 2, k.hi, -1, 0, sh, k.c, k.c + 32);
      default: return Cross<4>(re, im, size / 2, k.hi, -1, 0, sh, k.c, k.c + 32);
    }
  }
  // Both bits above a vector: the pairs |00>, |11> in one pass and |01>, |10> in another.
  Cross<0>(re, im, size / 4, k.lo, k.hi, 0, sa | sb, k.c, k.c + 32);
  Cross<0>(re, im, size / 4, k.lo, k.hi, sa, sb, k.c + 64, k.c + 96);
}

// Sub-blocks of 2^kL1Bits amplitudes (32 KiB) stay in a core's first-level cache.
constexpr int kL1Bits = 11;

// Applies the kernels [first, last) to a block in order. A run of kernels on bits below
// kL1Bits is applied sub-block by sub-block, so the block is read from the outer cache once
// for the whole run rather than once per kernel (each sub-block is a subspace all of them
// keep).
void BlockOps(double* re, double* im, u64 size, const Kernel* first, const Kernel* last) {
  auto low = [](const Kernel& k) { return k.hi < kL1Bits; };
  const u64 sub = u64{1} << kL1Bits;
  while (first != last) {
    if (size <= sub || !low(*first)) {
      BlockOp(re, im, size, *first++);
      continue;
    }
    const Kernel* end = first;
    while (end != last && low(*end)) ++end;
    for (u64 base = 0; base < size; base += sub)
      for (const Kernel* k = first; k != end; ++k) BlockOp(re + base, im + base, sub, *k);
    first = end;
  }
}

// Partial sums of a block for its local bits, three per bit b: sx + i sy = sum over bit b
// clear of conj(a0) a1, and s0 = sum over bit b clear of |a0|^2 (the z sum is 2 s0 minus the
// block's norm). The passes over pairs make only sx and sy; the s0 of every bit come from
// the norms of groups of amplitudes added level by level (NormLevels), a few additions per
// group instead of a norm per pair and bit. Every loop keeps its own partial sums in lanes
// and accumulators, so it vectorises without reassociating anything: the bits depend on the
// block alone.
template <class V>
__attribute__((always_inline)) inline double SumV(const V& v) {
  constexpr int kWidth = sizeof(V) / sizeof(double);
  double lanes[kWidth];
  std::memcpy(lanes, &v, sizeof v);
  for (int w = kWidth; w > 1; w /= 2)
    for (int k = 0; k < w / 2; ++k) lanes[k] = lanes[2 * k] + lanes[2 * k + 1];
  return lanes[0];
}
inline double SumV(double v) { return v; }

// The sx and sy of one bit (kBits = 1) whose partner lies `s` amplitudes further, or of two
// neighbouring bits (kBits = 2, partners s and 2s further) in one pass: each group of four
// runs A, B, C, D holds the pairs (A, B), (C, D) of the first bit and (A, C), (B, D) of the
// second, so the block is read once for both. s is at least the width of V. Each product
// goes into an accumulator of its own, so no chain of additions waits on another. out[0..1]
// for the first bit, out[3..4] for the second.
//
// A contiguous block (kRows false) takes the positions in A in one flat loop, so short runs
// cost no loop of their own. A block of rows (kRows true) is `size / cols` rows of `cols`
// amplitudes, row r at r << shift in the arrays, and s counts amplitudes as if the rows lay
// end to end (a multiple of cols): the high qubits of a register read in place.
template <class V, int kBits, bool kRows = false>
__attribute__((always_inline)) inline void PairPass(const double* __restrict re,
                                                    const double* __restrict im, u64 size,
                                                    u64 s, double* out, u64 cols = 0,
                                                    int shift = 0) {
  constexpr u64 kWidth = sizeof(V) / sizeof(double);
  constexpr int kAcc = kBits == 1 ? 4 : 16;
  V acc[kAcc] = {};
  // The pairs of the runs at k, k + d (and k + 2d, k + 3d).
  auto at = [&](u64 k, u64 d) {
    V ar, ai, br, bi;
    LoadV(ar, re + k);
    LoadV(ai, im + k);
    LoadV(br, re + k + d);
    LoadV(bi, im + k + d);
    // conj(x) y of a pair of runs: its real products into x[0..1], its imaginary into y[0..1].
    auto pair = [](V* x, V* y, const V& xr, const V& xi, const V& yr, const V& yi) {
      x[0] += xr * yr;
      x[1] += xi * yi;
      y[0] += xr * yi;
      y[1] -= xi * yr;
    };
    if constexpr (kBits == 1) {
      pair(acc, acc + 2, ar, ai, br, bi);
    } else {
      V cr, ci, dr, di;
      LoadV(cr, re + k + 2 * d);
      LoadV(ci, im + k + 2 * d);
      LoadV(dr, re + k + 3 * d);
      LoadV(di, im + k + 3 * d);
      pair(acc, acc + 4, ar, ai, br, bi);
      pair(acc + 2, acc + 6, cr, ci, dr, di);
      pair(acc + 8, acc + 12, ar, ai, cr, ci);
      pair(acc + 10, acc + 14, br, bi, dr, di);
    }
  };
  if constexpr (!kRows) {
    for (u64 j = 0; j < (size >> kBits); j += kWidth)
      at((j & (s - 1)) | ((j & ~(s - 1)) << kBits), s);
  } else {
    const u64 rows = size / cols, sr = s / cols;
    for (u64 g = 0; g < (rows >> kBits); ++g) {
      const u64 k = ((g & (sr - 1)) | ((g & ~(sr - 1)) << kBits)) << shift;
      for (u64 c = 0; c < cols; c += kWidth) at(k + c, sr << shift);
    }
  }
  // Each sum's accumulators, added pairwise: sx, sy of the first bit, then of the second.
  constexpr int kPer = kAcc / (2 * kBits);
  for (int q = 0; q < 2 * kBits; ++q) {
    double part[kPer];
    for (int k = 0; k < kPer; ++k) part[k] = SumV(acc[kPer * q + k]);
    for (int w = kPer; w > 1; w /= 2)
      for (int k = 0; k < w / 2; ++k) part[k] = part[2 * k] + part[2 * k + 1];
    out[3 * (q / 2) + q % 2] = part[0];
  }
}

template <int kBits>
ORVEX_KERNEL void BlockPairPass(const double* re, const double* im, u64 size, u64 s,
                                double* out) {
  if (s >= 8)
    PairPass<V8, kBits>(re, im, size, s, out);
  else
    PairPass<V4, kBits>(re, im, size, s, out);
}

// The same on a block of rows (see PairPass), with vectors no wider than a row.
template <int kBits>
ORVEX_KERNEL void RowsPairPass(const double* re, const double* im, u64 size, u64 s,
                               double* out, u64 cols, int shift) {
  if (cols >= 8)
    PairPass<V8, kBits, true>(re, im, size, s, out, cols, shift);
  else if (cols >= 4)
    PairPass<V4, kBits, true>(re, im, size, s, out, cols, shift);
  else
    PairPass<double, kBits, true>(re, im, size, s, out, cols, shift);
}

// Bits 0, 1 and 2 (partners closer than a vector of eight) in one pass: each group of
// sixteen amplitudes holds eight pairs of each bit, sorted into lanes by shuffles.
// out[3 b + 0..1] for b = 0, 1, 2 and out[2] the s0 of bit 0; norms[g] the norms of group
// g's pairs of neighbours (lane k: amplitudes 2k and 2k + 1).
ORVEX_KERNEL void BlockPairNarrow(const double* __restrict re, const double* __restrict im,
                                  u64 size, double* out, V8* __restrict norms) {
  V8 x0 = {}, y0 = {}, z0 = {}, x1 = {}, y1 = {}, x2 = {}, y2 = {};
  auto add = [](const V8& ar, const V8& ai, const V8& br, const V8& bi, V8& x, V8& y) {
    x += ar * br + ai * bi;
    y += ar * bi - ai * br;
  };
  for (u64 g = 0; g < size; g += 16) {
    V8 ra, rb, ia, ib;
    LoadV(ra, re + g);
    LoadV(rb, re + g + 8);
    LoadV(ia, im + g);
    LoadV(ib, im + g + 8);
    {
      const V8 ar = ORVEX_SHUFFLE8(ra, rb, 0, 2, 4, 6, 8, 10, 12, 14);
      const V8 br = ORVEX_SHUFFLE8(ra, rb, 1, 3, 5, 7, 9, 11, 13, 15);
      const V8 ai = ORVEX_SHUFFLE8(ia, ib, 0, 2, 4, 6, 8, 10, 12, 14);
      const V8 bi = ORVEX_SHUFFLE8(ia, ib, 1, 3, 5, 7, 9, 11, 13, 15);
      add(ar, ai, br, bi, x0, y0);
      const V8 na = ar * ar + ai * ai;
      z0 += na;
      norms[g / 16] = na + (br * br + bi * bi);
    }
    add(ORVEX_SHUFFLE8(ra, rb, 0, 1, 4, 5, 8, 9, 12, 13),
        ORVEX_SHUFFLE8(ia, ib, 0, 1, 4, 5, 8, 9, 12, 13),
        ORVEX_SHUFFLE8(ra, rb, 2, 3, 6, 7, 10, 11, 14, 15),
        ORVEX_SHUFFLE8(ia, ib, 2, 3, 6, 7, 10, 11, 14, 15), x1, y1);
    add(ORVEX_SHUFFLE8(ra, rb, 0, 1, 2, 3, 8, 9, 10, 11),
        ORVEX_SHUFFLE8(ia, ib, 0, 1, 2, 3, 8, 9, 10, 11),
        ORVEX_SHUFFLE8(ra, rb, 4, 5, 6, 7, 12, 13, 14, 15),
        ORVEX_SHUFFLE8(ia, ib, 4, 5, 6, 7, 12, 13, 14, 15), x2, y2);
  }
  out[0] = SumV(x0);
  out[1] = SumV(y0);
  out[2] = SumV(z0);
  out[3] = SumV(x1);
  out[4] = SumV(y1);
  out[6] = SumV(x2);
  out[7] = SumV(y2);
}

// Blocks of fewer than eight amplitudes (registers of one or two qubits): all three sums.
void BlockBlochTiny(const double* re, const double* im, u64 size, u64 s, double* out) {
  double x = 0, y = 0, z = 0;
  for (u64 a = 0; a < size; ++a) {
    if (a & s) continue;
    const u64 b = a + s;
    x += re[a] * re[b] + im[a] * im[b];
    y += re[a] * im[b] - im[a] * re[b];
    z += re[a] * re[a] + im[a] * im[a];
  }
  out[0] = x;
  out[1] = y;
  out[2] = z;
}

// The norms of 2^L neighbouring pieces of a block, in order, give the s0 of the L bits above
// a piece: level l adds the pieces whose bit l is clear into z[3 l], and neighbours pairwise
// into the next level, which leaves the norm of the whole in norms[0].
template <class T>
__attribute__((always_inline)) inline void NormLevels(T* norms, u64 count, double* z) {
  for (u64 len = count; len > 1; len /= 2, z += 3) {
    T even{};
    for (u64 i = 0; i < len; i += 2) {
      even += norms[i];
      norms[i / 2] = norms[i] + norms[i + 1];
    }
    *z = SumV(even);
  }
}

// The s0 of bits 1 and up of a block from the norms of its groups of sixteen
// (BlockPairNarrow) into out[3 b + 2]; returns the block's norm. The groups give bits 4 and
// up; lane k of their total holds amplitudes 2k and 2k + 1, which gives bits 1 to 3.
ORVEX_KERNEL double GroupNormLevels(V8* norms, u64 groups, double* out) {
  NormLevels(norms, groups, out + 3 * 4 + 2);
  double t[8];
  std::memcpy(t, &norms[0], sizeof t);
  out[3 * 1 + 2] = (t[0] + t[2]) + (t[4] + t[6]);
  out[3 * 2 + 2] = (t[0] + t[1]) + (t[4] + t[5]);
  out[3 * 3 + 2] = (t[0] + t[1]) + (t[2] + t[3]);
  return SumV(norms[0]);
}

// The sx and sy of bits lo..hi-1 of a block into out[3 (b - lo) + 0..1], one pass over the
// block per bit or pair of bits (bits of at least two: partners at least four apart). With
// cols set, the block is rows (see PairPass) and bit lo at least the bits of a row.
void BlockPairPasses(const double* re, const double* im, u64 size, int lo, int hi,
                     double* out, u64 cols = 0, int shift = 0) {
  for (int b = lo; b < hi; ++b) {
    const u64 s = u64{1} << b;
    double* o = out + 3 * (b - lo);
    const bool two = b + 1 < hi;
    if (cols) {
      two ? RowsPairPass<2>(re, im, size, s, o, cols, shift)
          : RowsPairPass<1>(re, im, size, s, o, cols, shift);
    } else if (s < 4) {
      BlockBlochTiny(re, im, size, s, o);
      continue;
    } else {
      two ? BlockPairPass<2>(re, im, size, s, o) : BlockPairPass<1>(re, im, size, s, o);
    }
    b += two;
  }
}

// Sub-blocks of the measurement, at most 2^kL1Bits amplitudes, have their group norms on the
// stack.
constexpr u64 kMaxGroups = (u64{1} << kL1Bits) / 16;

// All sums of every bit of a contiguous block of 2^bits amplitudes (bits <= kL1Bits) into
// out[3 b + 0..2]; returns the block's norm.
double BlockBlochSmall(const double* re, const double* im, int bits, double* out) {
  const u64 size = u64{1} << bits;
  if (bits < 4) {
    double norm = 0;
    for (u64 a = 0; a < size; ++a) norm += re[a] * re[a] + im[a] * im[a];
    for (int b = 0; b < bits; ++b) BlockBlochTiny(re, im, size, u64{1} << b, out + 3 * b);
    return norm;
  }
  V8 norms[kMaxGroups];
  BlockPairNarrow(re, im, size, out, norms);
  BlockPairPasses(re, im, size, 3, bits, out + 9);
  return GroupNormLevels(norms, size / 16, out);
}

// All sums of every bit of a contiguous block of 2^bits amplitudes into out[3 b + 0..2];
// returns its norm. The bits below kL1Bits are measured sub-block by sub-block, so the block
// comes from the outer cache once for all of them; their sums are added in order.
double BlockBloch(const double* re, const double* im, int bits, double* out) {
  if (bits <= kL1Bits) return BlockBlochSmall(re, im, bits, out);
  const u64 sub = u64{1} << kL1Bits;
  const u64 subs = u64{1} << (bits - kL1Bits);
  std::vector<double> norms(subs);
  double low[3 * kL1Bits];
  std::fill(out, out + 3 * kL1Bits, 0.0);
  for (u64 k = 0; k < subs; ++k) {
    norms[k] = BlockBlochSmall(re + k * sub, im + k * sub, kL1Bits, low);
    for (int j = 0; j < 3 * kL1Bits; ++j) out[j] += low[j];
  }
  BlockPairPasses(re, im, sub * subs, kL1Bits, bits, out + 3 * kL1Bits);
  NormLevels(norms.data(), subs, out + 3 * kL1Bits + 2);
  return norms[0];
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

// A thread's tile buffer of 2^bits amplitudes (or more): a state, so aligned like the
// register's, and the vector kernels never read a vector across two cache lines.
StateVector& ThreadBuffer(int bits) {
  thread_local StateVector buffer;
  if ((buffer.Empty() || buffer.Qubits() < bits) && !buffer.AllocateUnset(bits))
    throw std::bad_alloc();
  return buffer;
}

// Copies runs of `len` doubles (a power of two) between the state, at offsets, and a tile
// buffer, one after another: into the buffer (kIn) or back. Real and imaginary parts go in
// one loop of whole vectors: the runs are short, so a library copy per run costs more in
// calls than in data.
template <bool kIn>
ORVEX_KERNEL void CopyRuns(const u64* offsets, u64 runs, u64 len, const double* fromRe,
                           const double* fromIm, double* toRe, double* toIm) {
  for (u64 r = 0; r < runs; ++r) {
    const u64 from = kIn ? offsets[r] : r * len, to = kIn ? r * len : offsets[r];
    const double* fr = fromRe + from;
    const double* fi = fromIm + from;
    if (len < 8) {  // tiles of tiny registers
      std::copy(fr, fr + len, toRe + to);
      std::copy(fi, fi + len, toIm + to);
      continue;
    }
    for (u64 k = 0; k < len; k += 8) {
      V8 a, b;
      LoadV(a, fr + k);
      LoadV(b, fi + k);
      StoreV(toRe + to + k, a);
      StoreV(toIm + to + k, b);
    }
  }
}

void Gather(const Tile& t, u64 base, const double* re, const double* im, double* bre,
            double* bim) {
  CopyRuns<true>(t.runOffset.data(), t.runOffset.size(), u64{1} << t.run, re + base, im + base,
                 bre, bim);
}

void Scatter(const Tile& t, u64 base, double* re, double* im, const double* bre,
             const double* bim) {
  CopyRuns<false>(t.runOffset.data(), t.runOffset.size(), u64{1} << t.run, bre, bim, re + base,
                  im + base);
}

// Amplitudes per task of the literal sweeps.
constexpr int kChunkBits = 14;
// Contiguous run every tile keeps, so gathers copy whole cache lines and more.
constexpr int kMinRunBits = 6;

struct Group {
  std::vector<int> bits;
  std::vector<const Op*> ops;
};

// Cuts the factors into groups, each of which one sweep applies tile by tile. Factors on
// different qubits commute, so a group may take a factor from further down the list as long
// as every earlier factor on one of its qubits is already applied (in this group or an
// earlier one): a factor that does not fit holds back its qubits for the rest of the pass.
// Within a group the factors keep their order.
std::vector<Group> PlanGroups(int qubits, const std::vector<Op>& ops, int width) {
  std::vector<Group> groups;
  const int minRun = std::min(kMinRunBits, width - 2);
  auto with = [](std::vector<int> bits, const Op& op) {
    auto add = [&](int b) {
      if (std::find(bits.begin(), bits.end(), b) == bits.end()) bits.push_back(b);
    };
    add(op.a);
    if (op.kind == Op::Pair) add(op.b);
    return bits;
  };
  std::vector<char> taken(ops.size(), 0);
  std::size_t firstLeft = 0;
  while (firstLeft < ops.size()) {
    Group g;
    for (int b = 0; b < minRun; ++b) g.bits.push_back(b);
    std::vector<char> held(static_cast<std::size_t>(std::max(qubits, 1)), 0);
    for (std::size_t k = firstLeft; k < ops.size(); ++k) {
      if (taken[k]) continue;
      const Op& op = ops[k];
      const bool pair = op.kind == Op::Pair;
      if (!held[op.a] && !(pair && held[op.b])) {
        auto bits = with(g.bits, op);
        if (static_cast<int>(bits.size()) <= width) {
          g.bits = std::move(bits);
          g.ops.push_back(&op);
          taken[k] = 1;
          continue;
        }
      }
      held[op.a] = 1;
      if (pair) held[op.b] = 1;
    }
    while (firstLeft < ops.size() && taken[firstLeft]) ++firstLeft;
    groups.push_back(std::move(g));
  }
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
      const u64 i = op.kind == Op::Single ? insertZero(r, lo) : insertZero(insertZero(r, lo), hi);
      ApplyAt(re, im, i, sa, sb, op);
    }
  });
}

namespace {
// The tile size (`tileBits`, or chosen: see kChosenTile) and, for a register larger than one
// tile, the sweeps' groups planned for it.
struct TilePlan {
  int tileBits;
  std::vector<Group> groups;
};

TilePlan PlanTiles(int qubits, const std::vector<Op>& ops, int tileBits) {
  if (tileBits == kChosenTile && qubits > kTileBits + 1) {
    // The narrowest tiles that need the fewest sweeps. Tiles of more than one extra bit only
    // where the register still has 16 of them, so that the threads share the sweep evenly.
    TilePlan best{kTileBits, PlanGroups(qubits, ops, kTileBits)};
    for (int bits = kTileBits + 1; bits <= kTileBits + 3; ++bits) {
      if (bits > kTileBits + 1 && qubits < bits + 4) break;
      auto groups = PlanGroups(qubits, ops, bits);
      if (groups.size() < best.groups.size()) best = {bits, std::move(groups)};
    }
    return best;
  }
  // Tiles are never smaller than the vector kernels' blocks.
  tileBits = tileBits == kChosenTile ? kTileBits : std::max(tileBits, kMinVectorBits);
  if (qubits <= tileBits) return {tileBits, {}};
  return {tileBits, PlanGroups(qubits, ops, tileBits)};
}
} // namespace

int SweepCount(int qubits, const std::vector<Op>& ops, int tileBits) {
  if (ops.empty()) return 0;
  const TilePlan plan = PlanTiles(qubits, ops, tileBits);
  return qubits <= plan.tileBits ? 1 : static_cast<int>(plan.groups.size());
}

namespace {
// Work of one piece: about 2^kPieceBits amplitude updates (some 10 ms of one core). A
// register that fits one tile takes its factors in runs of that many updates; a larger one
// takes each sweep in slices of tiles, the fewer amplitudes the more factors the sweep
// applies (bringing a tile in and out counts as one more factor).
constexpr int kPieceBits = 22;
} // namespace

struct OpsPlan::Impl {
  int qubits = 0;
  int tileBits = kTileBits;
  std::vector<Op> ops;      // one tile: the factors in order
  std::vector<Kernel> kernels;
  std::size_t opsPerPiece = 1;
  struct Sweep {
    Tile tile;
    std::vector<Kernel> local;  // the group's factors on the tile's local bits
    u64 tilesPerSlice = 1;
    std::size_t firstPiece = 0, slices = 1;
  };
  std::vector<Sweep> sweeps;
  std::size_t pieces = 0;

  ~Impl() {
    Recycle(kernels);
    for (Sweep& sweep : sweeps) Recycle(sweep.local);
  }
};

OpsPlan::OpsPlan(int qubits, std::vector<Op> ops, int tileBits) {
  const TilePlan planned = PlanTiles(qubits, ops, tileBits);
  tileBits = planned.tileBits;
  auto impl = std::make_shared<Impl>();
  impl->qubits = qubits;
  impl->tileBits = tileBits;
  if (ops.empty()) {
    // nothing to apply
  } else if (qubits <= tileBits) {
    impl->ops = std::move(ops);
    if (qubits >= kMinVectorBits) impl->kernels = Prepare(impl->ops);
    const std::size_t count = qubits >= kMinVectorBits ? impl->kernels.size() : impl->ops.size();
    impl->opsPerPiece = std::max<std::size_t>(1, (std::size_t{1} << kPieceBits) >> qubits);
    impl->pieces = (count + impl->opsPerPiece - 1) / impl->opsPerPiece;
  } else {
    const u64 tiles = u64{1} << (qubits - tileBits);
    for (const Group& g : planned.groups) {
      Impl::Sweep sweep{MakeTile(qubits, g.bits), {}};
      std::vector<Op> local;
      for (const Op* op : g.ops) {
        Op& l = local.emplace_back(*op);
        l.a = sweep.tile.localOf[op->a];
        if (op->kind == Op::Pair) l.b = sweep.tile.localOf[op->b];
      }
      sweep.local = Prepare(local);
      // The largest power of two of tiles within the piece's work, but at least eight tiles,
      // so that the threads share every piece (tile counts are powers of two, so the slices
      // divide the sweep).
      const u64 perTile = (u64{1} << tileBits) * (sweep.local.size() + 1);
      u64 perSlice = 1;
      while (perSlice < tiles &&
             (perSlice < 8 || 2 * perSlice * perTile <= (u64{1} << kPieceBits)))
        perSlice *= 2;
      sweep.tilesPerSlice = perSlice;
      sweep.slices = static_cast<std::size_t>(tiles / perSlice);
      sweep.firstPiece = impl->pieces;
      impl->pieces += sweep.slices;
      impl->sweeps.push_back(std::move(sweep));
    }
  }
  impl_ = std::move(impl);
}

std::size_t OpsPlan::Pieces() const { return impl_ ? impl_->pieces : 0; }

std::vector<Op> OpsPlan::TakeOps() {
  std::vector<Op> ops;
  if (impl_ && impl_.use_count() == 1) ops = std::move(impl_->ops);
  impl_.reset();
  ops.clear();
  return ops;
}

template <class For>
void OpsPlan::ApplyPiece(const For& policy, StateVector& psi, std::size_t piece) const {
  const Impl& p = *impl_;
  if (p.sweeps.empty()) {
    // The whole register is one tile: apply in place, one factor after the other. (Cutting
    // a register this small over the threads costs more in gathers and hand-overs than it
    // gains.)
    const std::size_t from = piece * p.opsPerPiece;
    if (p.qubits < kMinVectorBits) {
      const std::size_t to = std::min(p.ops.size(), from + p.opsPerPiece);
      for (std::size_t k = from; k < to; ++k)
        BlockOpSmall(psi.Re(), psi.Im(), psi.Size(), p.ops[k]);
      return;
    }
    const std::size_t to = std::min(p.kernels.size(), from + p.opsPerPiece);
    BlockOps(psi.Re(), psi.Im(), psi.Size(), p.kernels.data() + from, p.kernels.data() + to);
    return;
  }
  std::size_t s = 0;
  while (piece >= p.sweeps[s].firstPiece + p.sweeps[s].slices) ++s;
  const Impl::Sweep& sweep = p.sweeps[s];
  const u64 first = (piece - sweep.firstPiece) * sweep.tilesPerSlice;
  const u64 tileSize = u64{1} << p.tileBits;
  double* re = psi.Re();
  double* im = psi.Im();
  if (sweep.tile.run == p.tileBits) {
    // The tile is contiguous: its factors run in place, with no copy in or out.
    policy.Run(sweep.tilesPerSlice, [&](u64 k) {
      const u64 base = TileBase(sweep.tile, first + k);
      BlockOps(re + base, im + base, tileSize, sweep.local.data(),
               sweep.local.data() + sweep.local.size());
    });
    return;
  }
  policy.Run(sweep.tilesPerSlice, [&](u64 k) {
    StateVector& buf = ThreadBuffer(p.tileBits);
    const u64 base = TileBase(sweep.tile, first + k);
    Gather(sweep.tile, base, re, im, buf.Re(), buf.Im());
    BlockOps(buf.Re(), buf.Im(), tileSize, sweep.local.data(),
             sweep.local.data() + sweep.local.size());
    Scatter(sweep.tile, base, re, im, buf.Re(), buf.Im());
  });
}

template <class For>
void ApplyOps(const For& policy, StateVector& psi, const std::vector<Op>& ops, int tileBits) {
  const OpsPlan plan(psi.Qubits(), ops, tileBits);
  for (std::size_t k = 0; k < plan.Pieces(); ++k) plan.ApplyPiece(policy, psi, k);
}

namespace {
// The measurement reads a register larger than one tile in two layouts: contiguous tiles of
// the low qubits, in place, and tiles of rows for the high qubits, one row per value of those
// qubits, each of at least 2^kMeasureRunBits amplitudes (whole cache lines and pages). A tile
// of rows holds up to 2^(tileBits + 1) amplitudes, so up to tileBits + 1 - kMeasureRunBits
// high qubits (ten with the default tiles: one layout of rows up to 26 qubits).
constexpr int kMeasureRunBits = 7;
// Rows are made longer while their tile stays within 2^kMeasureRowTileBits amplitudes
// (512 KiB, a quarter of a core's outer cache), where the passes after the first find it.
constexpr int kMeasureRowTileBits = 15;
// Rows of a tile lie a power of two apart, so their lines fall into the same few sets of a
// cache: up to 2^kMeasureInPlaceBits rows are read in place, a tile of more rows is gathered
// into a buffer first.
constexpr int kMeasureInPlaceBits = 6;
// Amplitudes read by one piece of a measurement: 2^20 (16 MiB), a few milliseconds.
constexpr int kMeasureSliceBits = 20;
} // namespace

struct Measurement::Impl {
  int qubits = 0;
  int tileBits = 0;
  struct Layout {
    Tile tile;              // empty bits: the contiguous tiles of the low qubits
    int width;              // tile bits
    int firstQubit, count;  // the qubits measured in it: the tile's top `count` bits
    u64 firstTask, tasks;
  };
  std::vector<Layout> layouts;  // empty: one tile holds the register
  u64 tasks = 1;
  std::vector<u64> pieceStart;  // first task of each piece, then the number of tasks
  std::size_t stride = 0, pieces = 1;
  // Each task's sums: 3 per measured qubit, then (contiguous tiles) the tile's norm. The
  // tiles of rows leave s0 at zero: Result takes it from the contiguous tiles' norms.
  std::vector<double> partial;
};

Measurement::Measurement() = default;
Measurement::~Measurement() = default;
Measurement::Measurement(Measurement&&) noexcept = default;
Measurement& Measurement::operator=(Measurement&&) noexcept = default;

Measurement::Measurement(int qubits, int tileBits) : impl_(std::make_unique<Impl>()) {
  Impl& m = *impl_;
  m.qubits = qubits;
  // A register larger than the apply kernels' tile is cut into at least four tiles, so that
  // every thread gets work.
  if (qubits > kTileBits) tileBits = std::min(tileBits, qubits - 2);
  m.tileBits = tileBits;
  if (qubits <= tileBits) {
    m.stride = 3 * static_cast<std::size_t>(qubits) + 1;
    m.partial.assign(m.stride, 0.0);
    return;
  }
  const int n = qubits;
  m.layouts.push_back({Tile{}, tileBits, 0, tileBits, 0, u64{1} << (n - tileBits)});
  const int run = std::min(kMeasureRunBits, tileBits / 2);
  const int perLayout = tileBits + 1 - run;
  for (int b = tileBits; b < n; b += perLayout) {
    const int count = std::min(perLayout, n - b);
    // One or two qubits take one pass over their tile, so its rows can be as long as the
    // tile allows: fewer, larger tasks. More qubits take passes after the first from the
    // core's cache: rows as long as keep the tile within 2^kMeasureRowTileBits.
    const int longest = tileBits + 1 - count;
    const int rowBits =
        count <= 2 ? longest : std::min(longest, std::max(run, kMeasureRowTileBits - count));
    std::vector<int> bits;
    for (int k = 0; k < rowBits; ++k) bits.push_back(k);
    for (int k = 0; k < count; ++k) bits.push_back(b + k);
    const Impl::Layout& last = m.layouts.back();
    m.layouts.push_back({MakeTile(n, bits), rowBits + count, b, count,
                         last.firstTask + last.tasks, u64{1} << (n - rowBits - count)});
  }
  m.tasks = m.layouts.back().firstTask + m.layouts.back().tasks;
  m.stride = 3 * static_cast<std::size_t>(std::max(tileBits, perLayout)) + 1;
  m.partial.assign(m.tasks * m.stride, 0.0);
  // A piece ends once its tasks have read 2^kMeasureSliceBits amplitudes (a register read
  // in two layouts of at most that many together is one piece).
  m.pieceStart.push_back(0);
  u64 read = 0;
  for (const Impl::Layout& layout : m.layouts)
    for (u64 t = 0; t < layout.tasks; ++t) {
      if (read >= (u64{1} << kMeasureSliceBits)) {
        m.pieceStart.push_back(layout.firstTask + t);
        read = 0;
      }
      read += u64{1} << layout.width;
    }
  m.pieceStart.push_back(m.tasks);
  m.pieces = m.pieceStart.size() - 1;
}

std::size_t Measurement::Pieces() const { return impl_ ? impl_->pieces : 0; }

template <class For>
void Measurement::MeasurePiece(const For& policy, const StateVector& psi, std::size_t piece) {
  Impl& m = *impl_;
  if (m.layouts.empty()) {
    // One tile holds the register: one task on the calling thread.
    m.partial[3 * m.qubits] = BlockBloch(psi.Re(), psi.Im(), m.qubits, m.partial.data());
    return;
  }
  const u64 first = m.pieceStart[piece];
  const u64 count = m.pieceStart[piece + 1] - first;
  policy.Run(count, [&](u64 k) {
    const u64 task = first + k;
    std::size_t l = 0;
    while (task >= m.layouts[l].firstTask + m.layouts[l].tasks) ++l;
    const Impl::Layout& layout = m.layouts[l];
    const u64 t = task - layout.firstTask;
    const u64 size = u64{1} << layout.width;
    double* out = &m.partial[task * m.stride];
    if (l == 0) {
      out[3 * m.tileBits] = BlockBloch(psi.Re() + t * size, psi.Im() + t * size, m.tileBits, out);
      return;
    }
    // The tile's rows (one per value of its high qubits) are read where they lie, unless
    // there are so many that they crowd the cache (see kMeasureInPlaceBits).
    const u64 base = TileBase(layout.tile, t);
    const int rowBits = layout.width - layout.count;
    if (layout.count > kMeasureInPlaceBits) {
      StateVector& buf = ThreadBuffer(layout.width);
      Gather(layout.tile, base, psi.Re(), psi.Im(), buf.Re(), buf.Im());
      BlockPairPasses(buf.Re(), buf.Im(), size, rowBits, layout.width, out);
      return;
    }
    BlockPairPasses(psi.Re() + base, psi.Im() + base, size, rowBits, layout.width, out,
                    u64{1} << rowBits, layout.firstQubit);
  });
}

Expectations Measurement::Result() const {
  Expectations e;
  if (!impl_) return e;
  const Impl& m = *impl_;
  const int n = m.qubits;
  e.qubits.resize(n);
  // Per qubit: sx, sy, s0 (see BlockBloch), summed over the tasks in task order.
  std::vector<double> sums(3 * static_cast<std::size_t>(n), 0.0);
  if (m.layouts.empty()) {
    std::copy(m.partial.begin(), m.partial.begin() + 3 * n, sums.begin());
    e.norm2 = m.partial[3 * n];
  }
  for (const Impl::Layout& layout : m.layouts)
    for (u64 t = 0; t < layout.tasks; ++t) {
      const double* in = &m.partial[(layout.firstTask + t) * m.stride];
      for (int k = 0; k < layout.count; ++k) {
        sums[3 * (layout.firstQubit + k)] += in[3 * k];
        sums[3 * (layout.firstQubit + k) + 1] += in[3 * k + 1];
      }
      if (layout.firstTask != 0) continue;
      // The contiguous tiles also give the s0 of the qubits above them: tile t holds the
      // amplitudes whose high bits are those of t.
      const double norm = in[3 * layout.count];
      for (int k = 0; k < layout.count; ++k) sums[3 * k + 2] += in[3 * k + 2];
      for (int q = m.tileBits; q < n; ++q)
        if (!(t >> (q - m.tileBits) & 1)) sums[3 * q + 2] += norm;
      e.norm2 += norm;
    }
  for (int q = 0; q < n; ++q)
    e.qubits[q] = {2 * sums[3 * q], 2 * sums[3 * q + 1], 2 * sums[3 * q + 2] - e.norm2};
  return e;
}

template <class For>
Expectations Measure(const For& policy, const StateVector& psi, int tileBits) {
  if (psi.Empty()) return Expectations{};
  Measurement m(psi.Qubits(), tileBits);
  for (std::size_t p = 0; p < m.Pieces(); ++p) m.MeasurePiece(policy, psi, p);
  return m.Result();
}

template void ApplyLiteral<ParallelFor>(const ParallelFor&, StateVector&, const Op&);
template void ApplyLiteral<SequentialFor>(const SequentialFor&, StateVector&, const Op&);
template void ApplyOps<ParallelFor>(const ParallelFor&, StateVector&, const std::vector<Op>&, int);
template void ApplyOps<SequentialFor>(const SequentialFor&, StateVector&, const std::vector<Op>&,
                                      int);
template Expectations Measure<ParallelFor>(const ParallelFor&, const StateVector&, int);
template Expectations Measure<SequentialFor>(const SequentialFor&, const StateVector&, int);
template void OpsPlan::ApplyPiece<ParallelFor>(const ParallelFor&, StateVector&,
                                               std::size_t) const;
template void OpsPlan::ApplyPiece<SequentialFor>(const SequentialFor&, StateVector&,
                                                 std::size_t) const;
template void Measurement::MeasurePiece<ParallelFor>(const ParallelFor&, const StateVector&,
                                                     std::size_t);
template void Measurement::MeasurePiece<SequentialFor>(const SequentialFor&, const StateVector&,
                                                       std::size_t);

} // namespace orvex::engine
