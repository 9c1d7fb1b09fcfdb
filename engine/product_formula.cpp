// The factor lists of the product formula and their application in resumable pieces.
#include "engine/product_formula.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "engine/parallel.h"

namespace orvex::engine {

void FactorList::Field(int bit, double hx, double hy, double hz, double angle) {
  if (hx == 0 && hy == 0 && hz == 0) return;
  const int i = last_[bit];
  if (merge_ && i >= 0 && ops_[i].kind == Op::Single) {
    Source& s = sources_[i];
    if (s.pure && s.v[0] == hx && s.v[1] == hy && s.v[2] == hz) {
      s.angle += angle;
      ops_[i] = FieldFactor(bit, hx, hy, hz, s.angle);
    } else {
      ops_[i] = Then(ops_[i], FieldFactor(bit, hx, hy, hz, angle));
      s.pure = false;
    }
    return;
  }
  Push(FieldFactor(bit, hx, hy, hz, angle), {true, {hx, hy, hz}, angle}, bit, bit);
}

void FactorList::Pair(const Coupling& c, double angle) {
  if (c.jx == 0 && c.jy == 0 && c.jz == 0) return;
  const int a = c.i - 1, b = c.j - 1;
  const int i = last_[a];
  if (merge_ && i >= 0 && i == last_[b] && ops_[i].kind == Op::Pair) {
    Source& s = sources_[i];
    if (s.v[0] == c.jx && s.v[1] == c.jy && s.v[2] == c.jz) {
      s.angle += angle;
      ops_[i] = PairFactor(a, b, c.jx, c.jy, c.jz, s.angle);
      return;
    }
  }
  Push(PairFactor(a, b, c.jx, c.jy, c.jz, angle), {true, {c.jx, c.jy, c.jz}, angle}, a, b);
}

void FactorList::Clear() {
  ops_.clear();
  sources_.clear();
  last_.fill(-1);
}

void FactorList::Push(const Op& op, const Source& s, int a, int b) {
  last_[a] = last_[b] = static_cast<int>(ops_.size());
  ops_.push_back(op);
  sources_.push_back(s);
}

namespace {

// Yoshida's triple jump: S(w1 d) S(w0 d) S(w1 d) is of fourth order when S is a symmetric
// second-order step.
const double kW1 = 1.0 / (2.0 - std::cbrt(2.0));
const double kW0 = 1.0 - 2.0 * kW1;

// Calls field(q, mid, h, first) and pair(index, h) for the factors of `count` sub-steps of
// `mi` from sub-step l of main step k, in the product's order: per stage S(t0, h) =
// F(mid, h/2) C(h) F(mid, h/2) with mid = t0 + h/2, the second order one stage per sub-step,
// the fourth order three (Yoshida's triple jump).
template <class Field, class Pair>
void ForEachFactor(const MiFile& mi, int integrator, std::int64_t k, std::int64_t l,
                   std::int64_t count, Field&& field, Pair&& pair) {
  const std::int64_t n = std::max<std::int64_t>(1, mi.intermediateSteps);
  const double tau = mi.timeStep, delta = tau / static_cast<double>(n);
  auto stage = [&](double mid, double h) {
    for (int q = 1; q <= mi.maxQubit; ++q)
      if (mi.HasField(q)) field(q, mid, h, true);
    const std::size_t p = mi.couplings.size();
    for (std::size_t i = 0; i < p; ++i) pair(i, h);
    for (std::size_t i = p; i-- > 0;) pair(i, h);
    for (int q = 1; q <= mi.maxQubit; ++q)
      if (mi.HasField(q)) field(q, mid, h, false);
  };
  for (std::int64_t s = 0; s < count; ++s) {
    const double t0 = static_cast<double>(k) * tau + static_cast<double>(l + s) * delta;
    if (integrator == kFourthOrder) {
      const double h1 = kW1 * delta, h0 = kW0 * delta;
      stage(t0 + h1 / 2, h1);
      stage(t0 + h1 + h0 / 2, h0);
      stage(t0 + delta - h1 / 2, h1);
    } else {
      stage(static_cast<double>(k) * tau + (static_cast<double>(l + s) + 0.5) * delta, delta);
    }
  }
}

// Largest group of coupled qubits that is evolved in its own space: its 2^k x 2^k matrix
// costs 2^k multiply-adds per amplitude when applied.
constexpr int kMaxFoldedGroup = 4;

using DenseMatrix = std::vector<Amp>;  // column-major, dim x dim

// With fields that change in time a folded group's matrix takes every factor of every
// sub-step, on all its 2^2k entries, where the register's state has 2^N. The group is folded
// only while its matrix has fewer than 2^kFoldOverState times the state's entries: a small
// matrix's tight loop beats the state's overhead per factor (two coupled qubits), a larger one
// does not (a register of three or four qubits that all couple).
constexpr int kFoldOverState = 3;
// Factors a folded group collects before they are multiplied into its matrix.
constexpr std::size_t kGroupFlush = 64;

DenseMatrix Identity(std::size_t dim) {
  DenseMatrix m(dim * dim);
  for (std::size_t i = 0; i < dim; ++i) m[i * dim + i] = 1;
  return m;
}

DenseMatrix Product(const DenseMatrix& a, const DenseMatrix& b, std::size_t dim) {
  DenseMatrix r(dim * dim);
  for (std::size_t col = 0; col < dim; ++col)
    for (std::size_t k = 0; k < dim; ++k) {
      const Amp f = b[col * dim + k];
      if (f == Amp()) continue;
      for (std::size_t row = 0; row < dim; ++row) r[col * dim + row] += a[k * dim + row] * f;
    }
  return r;
}

// u <- op u, op on the matrix's local bits. The rows of a column-major matrix are the low
// bits of its flat index, so applying op to the flat vector applies it to every column.
void ApplyToColumns(DenseMatrix& u, const Op& op) { ApplyDense(u, op); }

} // namespace

std::vector<Op> SubStepFactors(const MiFile& mi, int integrator, std::int64_t k,
                               std::int64_t l, std::int64_t count, bool merge) {
  FactorList list(merge);
  ForEachFactor(
      mi, integrator, k, l, count,
      [&](int q, double mid, double h, bool) {
        double hx, hy, hz;
        mi.FieldAt(q, mid, hx, hy, hz);
        list.Field(q - 1, hx, hy, hz, h / 2);
      },
      [&](std::size_t i, double h) { list.Pair(mi.couplings[i], h / 2); });
  return std::move(list.Ops());
}

ProductFormula::ProductFormula(const MiFile& mi, int integrator, int qubits, bool literal,
                               std::int64_t batchLimit)
    : mi_(&mi), integrator_(integrator), qubits_(qubits), literal_(literal), list_(!literal) {
  // Sub-steps per batch: about kBatchWork amplitude updates (some 0.1 s), at most kBatchOps
  // factors, at least one. A call returns inside a batch when its time is up.
  // The idle qubits' rotations cost no sweep of their own, only their 2x2 products: at
  // most kFoldFactors of those (a few milliseconds) per batch when the fields oscillate.
  constexpr double kBatchWork = double(1 << 28);
  constexpr double kBatchOps = 4096;
  constexpr double kFoldFactors = double(1 << 16);
  std::uint32_t touched = 0;
  for (const Coupling& p : mi.couplings)
    if (p.jx != 0 || p.jy != 0 || p.jz != 0)
      touched |= (std::uint32_t{1} << (p.i - 1)) | (std::uint32_t{1} << (p.j - 1));
  int fields = 0, idleFields = 0;
  for (int q = 1; q <= mi.maxQubit; ++q) {
    if (!mi.HasField(q)) continue;
    if (!literal_ && !(touched >> (q - 1) & 1)) {
      idleQubits_ |= std::uint32_t{1} << (q - 1);
      ++idleFields;
    } else {
      ++fields;
    }
  }
  const double stages = integrator_ == kFourthOrder ? 3.0 : 1.0;
  const double n = static_cast<double>(std::max<std::int64_t>(1, mi.intermediateSteps));
  // Connected components of the non-zero couplings; one of at most kMaxFoldedGroup qubits
  // is folded when its matrix costs less than its factors over a main step would.
  groupOf_.fill(-1);
  double foldWork = idleFields;  // 2x2 products per sub-step and stage
  int pairs = static_cast<int>(mi.couplings.size());
  if (!literal_) {
    std::array<int, kMaxQubits> root;
    for (int q = 0; q < kMaxQubits; ++q) root[q] = q;
    auto find = [&](int q) {
      while (root[q] != q) q = root[q] = root[root[q]];
      return q;
    };
    for (const Coupling& p : mi.couplings)
      if (p.jx != 0 || p.jy != 0 || p.jz != 0) root[find(p.i - 1)] = find(p.j - 1);
    std::map<int, Group> byRoot;
    for (int b = 0; b < kMaxQubits; ++b)
      if (touched >> b & 1) byRoot[find(b)].bits.push_back(b);
    for (std::size_t i = 0; i < mi.couplings.size(); ++i) {
      const Coupling& p = mi.couplings[i];
      if (p.jx != 0 || p.jy != 0 || p.jz != 0) byRoot[find(p.i - 1)].couplings.push_back(i);
    }
    for (auto& [r, g] : byRoot) {
      const int k = static_cast<int>(g.bits.size());
      if (k > kMaxFoldedGroup) continue;
      int groupFields = 0;
      for (int b : g.bits) groupFields += mi.HasField(b + 1) ? 1 : 0;
      const double factors =
          stages * (2.0 * groupFields + 2.0 * static_cast<double>(g.couplings.size()));
      const double dim = std::ldexp(1.0, k);
      if (dim > n * factors / 2) continue;
      if (!mi.StaticFields() && dim * dim >= std::ldexp(1.0, qubits + kFoldOverState)) continue;
      for (int b : g.bits) groupOf_[b] = static_cast<int>(groups_.size());
      fields -= groupFields;
      pairs -= static_cast<int>(g.couplings.size());
      foldWork += factors * dim * dim / 32;
      g.pending = Identity(static_cast<std::size_t>(dim));
      groups_.push_back(std::move(g));
    }
  }
  const double perSub = stages * (fields + 2.0 * pairs) + 1.0;
  const double byWork = kBatchWork / (perSub * std::ldexp(1.0, qubits));
  const double byFold =
      mi.StaticFields() || foldWork == 0 ? n : kFoldFactors / (stages * foldWork);
  batch_ = static_cast<std::int64_t>(
      std::clamp(std::min({byWork, kBatchOps / perSub, byFold}), 1.0, n));
  if (fields == 0 && pairs == 0) batch_ = static_cast<std::int64_t>(std::clamp(byFold, 1.0, n));
  if (batchLimit > 0) batch_ = std::min(batch_, batchLimit);
}

int ProductFormula::LocalBit(int g, int bit) const {
  const auto& bits = groups_[g].bits;
  return static_cast<int>(std::find(bits.begin(), bits.end(), bit) - bits.begin());
}

// A coupling of group g on the group's local bits, for the group's own matrix.
Coupling ProductFormula::Local(const Coupling& p, int g) const {
  Coupling l = p;
  l.i = LocalBit(g, p.i - 1) + 1;
  l.j = LocalBit(g, p.j - 1) + 1;
  return l;
}

// Multiplies the groups' evolution over the sub-steps into their pending matrices: a static
// sub-step's matrix to the power `count`, else the product of the factors collected.
void ProductFormula::FoldGroups(std::int64_t count, std::vector<FactorList>& groupLists) {
  const MiFile& mi = *mi_;
  for (std::size_t g = 0; g < groups_.size(); ++g) {
    Group& group = groups_[g];
    const std::size_t dim = std::size_t{1} << group.bits.size();
    if (mi.StaticFields()) {
      if (group.step.empty()) {
        FactorList one(true);
        auto oneField = [&](int q, double mid, double h, bool) {
          if (groupOf_[q - 1] != static_cast<int>(g)) return;
          double hx, hy, hz;
          mi.FieldAt(q, mid, hx, hy, hz);
          one.Field(LocalBit(static_cast<int>(g), q - 1), hx, hy, hz, h / 2);
        };
        auto onePair = [&](std::size_t i, double h) {
          if (groupOf_[mi.couplings[i].i - 1] == static_cast<int>(g))
            one.Pair(Local(mi.couplings[i], static_cast<int>(g)), h / 2);
        };
        ForEachFactor(mi, integrator_, 0, 0, 1, oneField, onePair);
        group.step = Identity(dim);
        for (const Op& op : one.Ops()) ApplyToColumns(group.step, op);
      }
      DenseMatrix power = Identity(dim), base = group.step;
      for (std::int64_t e = count; e > 0; e >>= 1) {
        if (e & 1) power = Product(base, power, dim);
        if (e > 1) base = Product(base, base, dim);
      }
      group.pending = Product(power, group.pending, dim);
    } else {
      FlushGroupList(static_cast<int>(g), groupLists[g]);
    }
    group.dirty = true;
  }
}

// Multiplies a group's factors collected so far into its pending matrix and empties the
// list.
void ProductFormula::FlushGroupList(int g, FactorList& list) {
  for (const Op& op : list.Ops()) ApplyToColumns(groups_[g].pending, op);
  list.Clear();
}

bool ProductFormula::Open(std::int64_t k, std::int64_t l, std::int64_t count,
                          bool endsInterval) {
  const MiFile& mi = *mi_;
  FactorList& list = list_;
  list.Clear();
  if (!literal_) list.Ops() = plan_.TakeOps();
  const bool fixed = mi.StaticFields();
  std::vector<FactorList> groupLists(groups_.size(), FactorList(true));
  // A group's factors go into its matrix a few dozen at a time, so that a long batch does
  // not pile them up in memory.
  auto addToGroup = [&](int g, auto&& add) {
    add(groupLists[g]);
    if (groupLists[g].Ops().size() >= kGroupFlush) FlushGroupList(g, groupLists[g]);
  };
  // An idle qubit's two halves of a stage meet (nothing acts on it in between): one
  // rotation by the whole angle, taken with the first half. A folded group with static
  // fields takes its sub-step's matrix instead of its factors.
  auto field = [&](int q, double mid, double h, bool first) {
    const bool idle = idleQubits_ >> (q - 1) & 1;
    const int g = groupOf_[q - 1];
    if ((idle && !first) || (g >= 0 && fixed)) return;
    double hx, hy, hz;
    mi.FieldAt(q, mid, hx, hy, hz);
    if (g >= 0)
      addToGroup(g, [&](FactorList& f) { f.Field(LocalBit(g, q - 1), hx, hy, hz, h / 2); });
    else
      (idle ? idle_ : list).Field(q - 1, hx, hy, hz, idle ? h : h / 2);
  };
  auto pair = [&](std::size_t i, double h) {
    const Coupling& p = mi.couplings[i];
    const int g = groupOf_[p.i - 1];
    if (g < 0)
      list.Pair(p, h / 2);
    else if (!fixed)
      addToGroup(g, [&](FactorList& f) { f.Pair(Local(p, g), h / 2); });
  };
  ForEachFactor(mi, integrator_, k, l, count, field, pair);
  FoldGroups(count, groupLists);
  // The state lags behind the sub-steps done by the folded evolution until it is applied.
  bool changes = !idle_.Empty() || !groups_.empty();
  groupPlans_.clear();
  if (endsInterval) {
    if (!idle_.Empty()) {
      list.Ops().insert(list.Ops().end(), idle_.Ops().begin(), idle_.Ops().end());
      idle_ = FactorList(true);
    }
    PlanPendingGroups();
  }
  literalOps_.clear();
  if (literal_)
    literalOps_ = std::move(list.Ops());
  else
    plan_ = OpsPlan(qubits_, std::move(list.Ops()));
  changes = changes || !literalOps_.empty() || plan_.Pieces() > 0;
  next_ = 0;
  pieces_ = Pieces();
  open_ = true;
  return changes;
}

void ProductFormula::PlanPendingGroups() {
  groupPlans_.clear();
  for (Group& g : groups_) {
    if (!g.dirty) continue;
    groupPlans_.emplace_back(qubits_, g.bits, std::move(g.pending));
    g.pending = Identity(std::size_t{1} << g.bits.size());
    g.dirty = false;
  }
}

std::size_t ProductFormula::Pieces() const {
  std::size_t pieces = literal_ ? literalOps_.size() : plan_.Pieces();
  for (const GroupPlan& g : groupPlans_) pieces += g.Pieces();
  return pieces;
}

bool ProductFormula::ApplyNext(const ParallelFor& policy, StateVector& psi) {
  if (next_ < pieces_) {
    std::size_t piece = next_++;
    bool done = false;
    for (const GroupPlan& g : groupPlans_) {
      if (piece < g.Pieces()) {
        g.ApplyPiece(policy, psi, piece);
        done = true;
        break;
      }
      piece -= g.Pieces();
    }
    if (!done && literal_)
      ApplyLiteral(policy, psi, literalOps_[piece]);
    else if (!done)
      plan_.ApplyPiece(policy, psi, piece);
  }
  if (next_ < pieces_) return false;
  open_ = false;
  groupPlans_.clear();
  plan_ = OpsPlan();
  literalOps_.clear();
  return true;
}

bool ProductFormula::FlushNext(const ParallelFor& policy, StateVector& psi) {
  if (!open_) {
    // The pending evolution becomes a batch of its own: the groups' matrices, then the idle
    // qubits' rotations.
    PlanPendingGroups();
    literalOps_.clear();
    if (literal_)
      literalOps_ = std::move(idle_.Ops());
    else
      plan_ = OpsPlan(qubits_, idle_.Ops());
    idle_ = FactorList(true);
    next_ = 0;
    pieces_ = Pieces();
    open_ = true;
  }
  return ApplyNext(policy, psi);
}

} // namespace orvex::engine
