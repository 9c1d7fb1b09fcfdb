// The physics of the engine against closed-form results and against a dense reference
// exp(-iHT) (and a fine Runge-Kutta integration for time-dependent fields).
#include <algorithm>
#include <chrono>
#include <functional>
#include <random>

#include "engine/product_formula.h"
#include "engine_test_util.h"

namespace orvex::engine::test {
namespace {

constexpr double kPi = 3.14159265358979323846;
enum { Hx0, Hx1, Wx, Hy0, Hy1, Wy, Hz0, Hz1, Wz, Px, Py, Pz };

// Rotation of qubit q by `angle` about y (|0> to |+> for pi/2).
MiText RotateY(int qubits, int q, double angle) {
  MiText m;
  m.qubits = qubits;
  m.Field(q, Hy0, -angle);
  return m;
}

struct Session {
  RunDir dir;
  Simulator sim;
  CallArgs args;
  // Writes the MIs as m1.MI, m2.MI, ... and a program calling them in order; runs it.
  void Go(const std::vector<MiText>& mis) {
    std::vector<std::string> lines;
    for (std::size_t k = 0; k < mis.size(); ++k) {
      const std::string name = "m" + std::to_string(k + 1) + ".MI";
      dir.write(name, mis[k].Text());
      lines.push_back("@" + name);
    }
    dir.write("test.kvp", ProgramText(lines));
    args = RunToEnd(sim, "test.kvp");
    ASSERT_EQ(args.status, 0) << dir.read("kv1dll.log");
  }
};

TEST(Physics, RabiRotationAboutX) {
  for (double t : {0.4, 1.0, 2.5}) {
    const double h = 1.3;
    MiText rabi;
    rabi.Field(1, Hx0, h);
    rabi.fieldSteps = 4;
    rabi.intermediateSteps = 3;
    rabi.timeStep = t / 4;
    Session r;
    r.Go({InitMi(1), rabi});
    EXPECT_NEAR(r.args.z[0], std::pow(std::sin(h * t / 2), 2), 1e-12) << t;
    EXPECT_NEAR(r.args.y[0], (1 - std::sin(h * t)) / 2, 1e-12) << t;
    EXPECT_NEAR(r.args.x[0], 0.5, 1e-12) << t;
  }
}

TEST(Physics, PrecessionUnderAZField) {
  const double hz = 0.9, t = 2.2;
  MiText precess;
  precess.Field(1, Hz0, hz);
  precess.timeStep = t;
  Session r;
  r.Go({InitMi(1), RotateY(1, 1, kPi / 2), precess});
  EXPECT_NEAR(r.args.x[0], (1 - std::cos(hz * t)) / 2, 1e-12);
  EXPECT_NEAR(r.args.y[0], (1 + std::sin(hz * t)) / 2, 1e-12);
  EXPECT_NEAR(r.args.z[0], 0.5, 1e-12);
}

TEST(Physics, IsotropicCouplingExchangesTheQubits) {
  const double j = 0.7;
  for (double t : {1.0, kPi / j}) {
    MiText flip;  // qubit 1 to |1>
    flip.qubits = 2;
    flip.Field(1, Hx0, -kPi);
    MiText exchange;
    exchange.qubits = 2;
    exchange.Pair(1, 2, j, j, j);
    exchange.timeStep = t;
    Session r;
    r.Go({InitMi(2), flip, exchange});
    EXPECT_NEAR(r.args.z[0], std::pow(std::cos(j * t / 2), 2), 1e-12) << t;
    EXPECT_NEAR(r.args.z[1], std::pow(std::sin(j * t / 2), 2), 1e-12) << t;
  }
}

TEST(Physics, IsingCouplingGivesTheZZPhase) {
  const double jz = 1.7, t = 0.8;
  MiText zz;
  zz.qubits = 2;
  zz.Pair(1, 2, 0, 0, jz);
  zz.timeStep = t;
  Session r;
  r.Go({InitMi(2), RotateY(2, 1, kPi / 2), RotateY(2, 2, kPi / 2), zz});
  for (int q = 0; q < 2; ++q) {
    EXPECT_NEAR(r.args.x[q], (1 - std::cos(jz * t / 2)) / 2, 1e-12);
    EXPECT_NEAR(r.args.y[q], 0.5, 1e-12);
    EXPECT_NEAR(r.args.z[q], 0.5, 1e-12);
  }
}

TEST(Physics, ResonantOscillatingFieldFlipsTheSpin) {
  // Rotating-wave limit: amplitude eps at the Larmor frequency gives Rabi frequency eps/2,
  // so a full flip after 2 pi / eps.
  const double w0 = 1.0, eps = 0.02, t = 2 * kPi / eps;
  MiText drive;
  drive.Field(1, Hz0, w0).Field(1, Hx1, eps).Field(1, Wx, w0);
  drive.fieldSteps = 100;
  drive.intermediateSteps = 64;
  drive.timeStep = t / 100;
  Session r;
  r.Go({InitMi(1), drive});
  EXPECT_GT(r.args.z[0], 0.99);
  // Half the time: on the equator.
  drive.timeStep = t / 200;
  Session half;
  half.Go({InitMi(1), drive});
  EXPECT_NEAR(half.args.z[0], 0.5, 0.02);
}

// ---- Second order against the dense reference ----

MiText RandomStatic(int n, unsigned seed, double t, long steps) {
  std::mt19937_64 gen(seed);
  std::uniform_real_distribution<double> u(-1.5, 1.5);
  MiText m;
  m.qubits = n;
  for (int q = 1; q <= n; ++q) m.Field(q, Hx0, u(gen)).Field(q, Hy0, u(gen)).Field(q, Hz0, u(gen));
  for (int i = 1; i <= n; ++i)
    for (int j = i + 1; j <= n; ++j)
      if (j == i + 1 || (i + j + seed) % 3 != 0) m.Pair(i, j, u(gen), u(gen), u(gen));
  m.fieldSteps = 1;
  m.intermediateSteps = steps;
  m.timeStep = t;
  return m;
}

// Runs a random initial state through `mi` and returns |psi_engine - psi_reference|.
double ErrorAgainst(const MiText& mi, int n, const std::function<Vector(const Vector&)>& exact,
                    int integrator = kSecondOrder) {
  RunDir dir;
  MiText init = InitMi(n, "RANDOM");
  init.seed = 4242;
  dir.write("init.MI", init.Text());
  dir.write("evolve.MI", mi.Text());
  dir.write("test.kvp", ProgramText({"@init.MI", "@evolve.MI"}));
  Simulator sim;
  CallArgs a = StartArgs("test.kvp", 1, 0);
  a.flags[1] = integrator;
  sim.Call(a);  // the initial state only
  EXPECT_EQ(a.status, 0);
  const Vector psi0 = StateOf(sim);
  EXPECT_NEAR(psi0.norm(), 1.0, 1e-12);
  do sim.Call(a);  // a long step returns early and goes on
  while (a.status == 0 && a.flags[0] == 1);
  EXPECT_EQ(a.status, 0);
  EXPECT_EQ(a.progress, 0);
  return (StateOf(sim) - exact(psi0)).norm();
}

TEST(SecondOrder, ErrorFallsFourfoldPerHalvingAndVanishesForFineSteps) {
  for (int n = 2; n <= 5; ++n) {
    const double t = 1.3;
    const MiText coarse = RandomStatic(n, 100 + n, t, 1);
    const Matrix u = Expm(Hamiltonian(coarse, n, 0), t);
    auto exact = [&](const Vector& v) -> Vector { return u * v; };
    const double e8 = ErrorAgainst(RandomStatic(n, 100 + n, t, 8), n, exact);
    const double e16 = ErrorAgainst(RandomStatic(n, 100 + n, t, 16), n, exact);
    const double e32 = ErrorAgainst(RandomStatic(n, 100 + n, t, 32), n, exact);
    EXPECT_NEAR(e8 / e16, 4.0, 0.4) << n << ": " << e8 << " " << e16;
    EXPECT_NEAR(e16 / e32, 4.0, 0.3) << n << ": " << e16 << " " << e32;
    EXPECT_LT(ErrorAgainst(RandomStatic(n, 100 + n, t, 20000), n, exact), 1e-8) << n;
  }
}

TEST(SecondOrder, TimeDependentFieldsConvergeToTheIntegratedEvolution) {
  const int n = 2;
  MiText mi;
  mi.qubits = n;
  mi.Field(1, Hz0, 1.1).Field(1, Hx1, 0.8).Field(1, Wx, 1.3).Field(1, Px, 0.4);
  mi.Field(2, Hy1, -0.6).Field(2, Wy, 2.1).Field(2, Hz0, 0.3).Field(2, Hz1, 0.5).Field(2, Wz, 0.7);
  mi.Pair(1, 2, 0.4, -0.2, 0.9);
  mi.fieldSteps = 3;
  mi.timeStep = 0.7;
  // Fourth-order Runge-Kutta on i d/dt psi = H(t) psi, with a step far below the engine's.
  auto exact = [&](const Vector& v0) -> Vector {
    Vector v = v0;
    const int steps = 40000;
    const double dt = mi.timeStep * static_cast<double>(mi.fieldSteps) / steps;
    const std::complex<double> mi1(0, -1);
    for (int s = 0; s < steps; ++s) {
      const double t = s * dt;
      const Matrix h0 = Hamiltonian(mi, n, t), h1 = Hamiltonian(mi, n, t + dt / 2),
                   h2 = Hamiltonian(mi, n, t + dt);
      const Vector k1 = mi1 * (h0 * v);
      const Vector k2 = mi1 * (h1 * (v + dt / 2 * k1));
      const Vector k3 = mi1 * (h1 * (v + dt / 2 * k2));
      const Vector k4 = mi1 * (h2 * (v + dt * k3));
      v += dt / 6 * (k1 + 2 * k2 + 2 * k3 + k4);
    }
    return v;
  };
  // Every run starts from the same random state: integrate once.
  Vector from, to;
  auto cached = [&](const Vector& v0) -> Vector {
    if (from.size() != v0.size() || from != v0) {
      from = v0;
      to = exact(v0);
    }
    return to;
  };
  std::vector<double> errors;
  for (long steps : {4, 8, 16}) {
    mi.intermediateSteps = steps;
    errors.push_back(ErrorAgainst(mi, n, cached));
  }
  EXPECT_NEAR(errors[0] / errors[1], 4.0, 0.5) << errors[0] << " " << errors[1];
  EXPECT_NEAR(errors[1] / errors[2], 4.0, 0.5) << errors[1] << " " << errors[2];
  mi.intermediateSteps = 2000;
  EXPECT_LT(ErrorAgainst(mi, n, cached), 1e-6);
  // The fourth-order integrator samples the fields at the middle of each of its three
  // stages (the second one running backwards): sixteenfold per doubling.
  errors.clear();
  for (long steps : {4, 8, 16}) {
    mi.intermediateSteps = steps;
    errors.push_back(ErrorAgainst(mi, n, cached, kFourthOrder));
  }
  EXPECT_NEAR(errors[0] / errors[1], 16.0, 2.5) << errors[0] << " " << errors[1];
  EXPECT_NEAR(errors[1] / errors[2], 16.0, 2.5) << errors[1] << " " << errors[2];
}

TEST(FourthOrder, ErrorFallsSixteenfoldPerDoublingAndMeetsTheDenseReference) {
  for (int n = 2; n <= 4; ++n) {
    const double t = 1.3;
    const MiText coarse = RandomStatic(n, 200 + n, t, 1);
    const Matrix u = Expm(Hamiltonian(coarse, n, 0), t);
    auto exact = [&](const Vector& v) -> Vector { return u * v; };
    auto error = [&](long steps) {
      return ErrorAgainst(RandomStatic(n, 200 + n, t, steps), n, exact, kFourthOrder);
    };
    const double e4 = error(4), e8 = error(8), e16 = error(16);
    EXPECT_NEAR(e4 / e8, 16.0, 2.5) << n << ": " << e4 << " " << e8;
    EXPECT_NEAR(e8 / e16, 16.0, 2.0) << n << ": " << e8 << " " << e16;
    // Far more accurate than the second order at the same step count.
    EXPECT_LT(error(1000), 1e-10) << n;
    EXPECT_LT(e16 * 50, ErrorAgainst(RandomStatic(n, 200 + n, t, 16), n, exact)) << n;
  }
}

TEST(SecondOrder, MergedFactorsAndTiledSweepsReproduceTheLiteralFormula) {
  // 16 qubits: larger than one tile, so the grouped sweeps really regroup the factors. The
  // field halves of neighbouring intermediate steps are merged (by angle for static fields,
  // as a matrix product for oscillating ones, over whole batches for qubit 16, which no
  // coupling touches); without fields the outer pair factors of neighbouring steps are.
  const int n = 16;
  for (int fields : {0, 1, 2}) {  // oscillating, static, none
    const bool oscillating = fields == 0;
    MiText chain;
    chain.qubits = n;
    std::mt19937_64 gen(9);
    std::uniform_real_distribution<double> u(-1, 1);
    for (int q = 1; q <= n && fields < 2; ++q) {
      chain.Field(q, Hx0, u(gen)).Field(q, Hz0, u(gen));
      if (oscillating) chain.Field(q, Hy1, u(gen)).Field(q, Wy, 2);
    }
    for (int q = 1; q + 1 < n; ++q) chain.Pair(q, q + 1, u(gen), u(gen), u(gen));
    chain.Pair(1, n - 1, 0.3, 0.2, 0.1);
    chain.fieldSteps = 2;
    chain.intermediateSteps = 5;
    chain.timeStep = 0.5;
    MiText init = InitMi(n, "RANDOM");
    std::vector<Vector> results;
    for (bool literal : {true, false}) {
      RunDir dir;
      dir.write("init.MI", init.Text());
      dir.write("chain.MI", chain.Text());
      dir.write("test.kvp", ProgramText({"@init.MI", "@chain.MI"}));
      Simulator sim;
      sim.SetLiteralSweeps(literal);
      ASSERT_EQ(RunToEnd(sim, "test.kvp").status, 0);
      results.push_back(StateOf(sim));
    }
    EXPECT_LT((results[0] - results[1]).cwiseAbs().maxCoeff(), 1e-10) << fields;
  }
}

// Every value a run reports, by program time, and the final state.
struct Reported {
  std::vector<std::pair<double, std::vector<double>>> values;  // time, then x, y, z per qubit
  Vector state;
};

// Runs init + `mi` (15 qubits: more than one tile) with `setup` applied to the simulator, in
// step mode of `granularity` or (granularity 2) in run mode returning after every piece.
Reported RunReporting(const MiText& mi, int integrator, int granularity,
                      const std::function<void(Simulator&)>& setup) {
  RunDir dir;
  MiText init = InitMi(mi.qubits, "RANDOM");
  init.seed = 77;
  dir.write("init.MI", init.Text());
  dir.write("mi.MI", mi.Text());
  dir.write("test.kvp", ProgramText({"@init.MI", "@mi.MI"}));
  Simulator sim;
  setup(sim);
  const bool run = granularity == 2;
  if (run) sim.SetReturnInterval(std::chrono::microseconds(0));
  CallArgs a = StartArgs("test.kvp", run ? 0 : 1, run ? 0 : granularity);
  a.flags[1] = integrator;
  Reported r;
  for (int calls = 0; calls < 100000; ++calls) {
    sim.Call(a);
    EXPECT_EQ(a.status, 0);
    if (a.status != 0) break;
    std::vector<double> v;
    for (int q = 0; q < mi.qubits; ++q) v.insert(v.end(), {a.x[q], a.y[q], a.z[q]});
    r.values.emplace_back(sim.ReportedTime(), v);
    if (a.flags[0] == 0 && a.progress == 0) break;
  }
  r.state = StateOf(sim);
  return r;
}

TEST(SecondOrder, IdleQubitsAndSmallGroupsFoldedOverAReportedIntervalReproduceTheLiteralFormula) {
  // Qubits 1-3 and 9, 15 coupled, two small groups each evolved in its own space over a
  // reported interval; the others, fields and no coupling, evolve on their own and are
  // folded into one rotation per reported interval. Each folded run, cut into
  // batches of at most 3 sub-steps so that a run-mode return falls inside a main step, must
  // report at every return the values the literal formula gives at that time.
  const int n = 15;
  for (bool coupled : {true, false}) {
    for (bool oscillating : {false, true}) {
      MiText mi;
      mi.qubits = n;
      std::mt19937_64 gen(oscillating ? 5 : 6);
      std::uniform_real_distribution<double> u(-1.2, 1.2);
      for (int q = 1; q <= n; ++q) {
        if (q == 7) continue;  // no field at all
        mi.Field(q, Hx0, u(gen)).Field(q, Hz0, u(gen));
        if (oscillating) mi.Field(q, Hy1, u(gen)).Field(q, Wy, 1.5 + q * 0.1).Field(q, Py, 0.3);
      }
      if (coupled)
        mi.Pair(1, 2, 0.9, -0.4, 0.6).Pair(2, 3, 0.3, 0.8, -1.1).Pair(9, 15, 1.2, 0.5, 0.7);
      mi.Pair(4, 5, 0, 0, 0);  // a zero coupling touches nothing
      mi.fieldSteps = 2;
      mi.intermediateSteps = 7;
      mi.timeStep = 0.6;
      for (int integrator : {kSecondOrder, kFourthOrder}) {
        const Reported literal =
            RunReporting(mi, integrator, 1, [](Simulator& s) { s.SetLiteralSweeps(true); });
        for (int granularity : {-1, 1, 2}) {
          const Reported folded =
              RunReporting(mi, integrator, granularity, [](Simulator& s) { s.SetBatchLimit(3); });
          const std::string what = std::to_string(coupled) + std::to_string(oscillating) +
                                   " integrator " + std::to_string(integrator) +
                                   " granularity " + std::to_string(granularity);
          EXPECT_LT((folded.state - literal.state).cwiseAbs().maxCoeff(), 1e-10) << what;
          int inside = 0;  // returns inside a main step
          for (const auto& [t, v] : folded.values) {
            auto same = std::find_if(literal.values.begin(), literal.values.end(),
                                     [&](const auto& e) { return std::abs(e.first - t) < 1e-9; });
            ASSERT_NE(same, literal.values.end()) << what << " t " << t;
            for (std::size_t k = 0; k < v.size(); ++k)
              ASSERT_NEAR(v[k], same->second[k], 1e-10) << what << " t " << t << " value " << k;
            const double main = t / mi.timeStep;
            inside += std::abs(main - std::round(main)) > 1e-9 ? 1 : 0;
          }
          if (granularity != -1) {
            EXPECT_GT(inside, 0) << what;
          }
        }
      }
    }
  }
}

TEST(SecondOrder, EachSubStepIsTheSymmetricProductOfExactFactors) {
  // The literal formula, built densely from the Hamiltonian's own terms: with
  // t = k tau + (l + 1/2) delta, U = F C F, F = exp(-i (delta/2) H_fields(t)) and
  // C = E(1,2) E(1,3) E(2,3) E(2,3) E(1,3) E(1,2), E = exp(-i (delta/2) H_pair). The pairs are
  // listed out of order in the file: C takes them ordered by (i, j). Qubit 4, which no pair
  // touches, has its own oscillating field. The factor lists of the engine's product formula,
  // literal and merged, per sub-step and over a main step, must give this product; so must a
  // run, which folds qubit 4 and batches the sub-steps.
  const int n = 4;
  MiText mi;
  mi.qubits = n;
  mi.Field(1, Hz0, 1.1).Field(1, Hx1, 0.8).Field(1, Wx, 1.3).Field(1, Px, 0.4);
  mi.Field(2, Hy0, -0.5).Field(2, Hz1, 0.9).Field(2, Wz, 2.1).Field(2, Pz, -0.3);
  mi.Field(3, Hx0, 0.7).Field(3, Hy1, -0.6).Field(3, Wy, 0.9);
  mi.Field(4, Hz0, -0.8).Field(4, Hx1, 1.4).Field(4, Wx, 2.6).Field(4, Px, 1.1);
  mi.Pair(2, 3, 1.2, -0.4, 0.6).Pair(1, 3, -0.9, 0.5, 1.4).Pair(1, 2, 0.3, 1.1, -0.8);
  mi.fieldSteps = 2;
  mi.intermediateSteps = 3;
  mi.timeStep = 0.9;
  auto pair = [&](int i, int j) {
    MiText p;
    for (auto& [a, b, jx, jy, jz] : mi.pairs)
      if ((a == i && b == j) || (a == j && b == i)) p.Pair(i, j, jx, jy, jz);
    return Hamiltonian(p, n, 0);
  };
  const double delta = mi.timeStep / 3;
  const Matrix e12 = Expm(pair(1, 2), delta / 2), e13 = Expm(pair(1, 3), delta / 2),
               e23 = Expm(pair(2, 3), delta / 2);
  const Matrix c = e12 * e13 * e23 * e23 * e13 * e12;
  MiText fieldsOnly = mi;
  fieldsOnly.pairs.clear();
  auto subStep = [&](int k, int l) -> Matrix {
    const double t = k * mi.timeStep + (l + 0.5) * delta;
    const Matrix f = Expm(Hamiltonian(fieldsOnly, n, t), delta / 2);
    return f * c * f;
  };
  MiFile parsed;
  ASSERT_FALSE(ParseMi("mi.MI", mi.Text(), parsed));
  Vector v0 = Vector::Random(1 << n);
  v0.normalize();
  auto applyFactors = [&](const std::vector<Op>& ops) {
    std::vector<Amp> v(v0.data(), v0.data() + v0.size());
    for (const Op& op : ops) ApplyDense(v, op);
    return Vector(Eigen::Map<Vector>(v.data(), v0.size()));
  };
  for (int k = 0; k < 2; ++k) {
    Matrix main = Matrix::Identity(1 << n, 1 << n);
    for (int l = 0; l < 3; ++l) {
      main = subStep(k, l) * main;
      for (bool merge : {false, true})
        EXPECT_LT((applyFactors(SubStepFactors(parsed, kSecondOrder, k, l, 1, merge)) -
                   subStep(k, l) * v0).norm(),
                  1e-12)
            << "main step " << k << " sub-step " << l << " merged " << merge;
    }
    EXPECT_LT((applyFactors(SubStepFactors(parsed, kSecondOrder, k, 0, 3, true)) - main * v0)
                  .norm(),
              1e-12)
        << "main step " << k;
  }
  auto exact = [&](const Vector& v) -> Vector {
    Vector r = v;
    for (int k = 0; k < 2; ++k)
      for (int l = 0; l < 3; ++l) r = subStep(k, l) * r;
    return r;
  };
  EXPECT_LT(ErrorAgainst(mi, n, exact), 1e-12);
}

// ---- Initial states ----

TEST(InitialStates, GroundStateIsTheLowestEigenvectorWithAPositiveLargestAmplitude) {
  const int n = 3;
  MiText ground = RandomStatic(n, 77, 0, 0);
  ground.fieldSteps = 0;
  ground.initial = "GROUND STATE";
  Session r;
  r.Go({ground});
  const Vector v = StateOf(r.sim);
  const Matrix h = Hamiltonian(ground, n, 0);
  Eigen::SelfAdjointEigenSolver<Matrix> s(h);
  EXPECT_NEAR(v.norm(), 1.0, 1e-12);
  EXPECT_NEAR((v.adjoint() * h * v)(0, 0).real(), s.eigenvalues()[0], 1e-10);
  Eigen::Index big = 0;
  v.cwiseAbs().maxCoeff(&big);
  EXPECT_GT(v[big].real(), 0);
  EXPECT_EQ(v[big].imag(), 0);
}

TEST(InitialStates, RandomStateDependsOnTheSeedOnly) {
  auto draw = [](unsigned long seed) {
    MiText init = InitMi(4, "RANDOM");
    init.seed = seed;
    Session r;
    r.Go({init});
    return StateOf(r.sim);
  };
  const Vector a = draw(12345), b = draw(12345), c = draw(12346);
  EXPECT_NEAR(a.norm(), 1.0, 1e-12);
  EXPECT_EQ((a - b).norm(), 0.0);
  EXPECT_GT((a - c).norm(), 0.1);
  // Amplitudes spread over all components, not a basis state.
  EXPECT_LT(a.cwiseAbs().maxCoeff(), 0.9);
}

TEST(InitialStates, SpinDownAndSpinUp) {
  Session down;
  down.Go({InitMi(3, "SPIN DOWN")});
  for (int q = 0; q < 3; ++q) {
    EXPECT_DOUBLE_EQ(down.args.z[q], 1.0);
    EXPECT_DOUBLE_EQ(down.args.x[q], 0.5);
  }
  Session up;
  up.Go({InitMi(3, "SPIN DOWN"), InitMi(3, "SPIN UP")});
  for (int q = 0; q < 3; ++q) EXPECT_DOUBLE_EQ(up.args.z[q], 0.0);
}

} // namespace
} // namespace orvex::engine::test
