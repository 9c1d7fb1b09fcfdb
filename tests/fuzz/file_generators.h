// Generators of MI and program files for the property tests and the fuzz driver: files in
// the writer's layout with the awkward turns hand-made files take (comment and blank lines
// after values, short field lines, SPIN headers without a blank, keywords in descriptions,
// time steps in units of 2 pi with more digits than the writer prints), and mutations of
// them down to random bytes. Deterministic for a given generator state.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "mi/mi_format.h"
#include "program/program_file.h"

namespace orvex::fuzz {

// The writers put a description on one "!" line and a call as "@" + name, so a fixed point
// after one round needs a record they can carry: a description that reads back as itself
// (the MI editor refuses any other) and names without the "#" or "!" that end a call (the
// name check refuses those).
inline bool WritableDescription(const MicroInstruction& mi) {
  const std::string wanted = mi.Description.empty() ? "(none)" : mi.Description;
  return DescriptionAsReadBack(mi.Description) == wanted;
}
inline bool WritableNames(const std::vector<ProgramRow>& rows) {
  for (const ProgramRow& row : rows)
    if (row.Text.find_first_of("#!") != std::string::npos) return false;
  return true;
}

using Rng = std::mt19937_64;

inline int Pick(Rng& rng, int n) { return static_cast<int>(rng() % static_cast<std::uint64_t>(n)); }
inline bool Chance(Rng& rng, int percent) { return Pick(rng, 100) < percent; }

template <typename T, std::size_t N>
const T& OneOf(Rng& rng, const T (&items)[N]) {
  return items[Pick(rng, static_cast<int>(N))];
}

// A number as people and the writer put it into MI files.
inline std::string NumberText(Rng& rng) {
  static const char* const forms[] = {
      "0",   ".5",  "-.25", "1E-05", "3",    "0.1234567890123456789", "-1.75", "2.5D-1",
      " .7", "+1",  "1.",   "0.3e0", "-0",   "1.5E+2",                ".33333333333333331",
      "2",   "1.25"};
  return OneOf(rng, forms);
}

struct GeneratedMi {
  std::string name;  // "INITIALIZE.MI" when it carries an initial state
  std::string text;
  int qubits = 1;    // SPIN headers written for 1..qubits
  long seed = 0;     // the seed of a random initial state, 0 when there is none
};

// An MI that runs: small register, few steps, moderate values.
inline GeneratedMi GenerateMi(Rng& rng) {
  GeneratedMi g;
  g.qubits = 1 + Pick(rng, 3);
  const bool initialize = Chance(rng, 30);
  g.name = initialize ? "INITIALIZE.MI" : "M" + std::to_string(Pick(rng, 100)) + ".MI";
  std::string& t = g.text;
  auto line = [&t](const std::string& s) { t += s + "\r\n"; };
  // What hand-made files put after a value line inside its block: the reader reads it too.
  auto after = [&](int percent) {
    if (!Chance(rng, percent)) return;
    static const char* const extra[] = {"", "! a comment", "   "};
    line(OneOf(rng, extra));
  };
  line("!Micro instruction ");
  line(Chance(rng, 20) ? "  heisenberg interaction " : "HEISENBERG INTERACTION");
  for (int i = 1; i <= g.qubits; ++i)
    for (int j = 1; j <= g.qubits; ++j) {
      if (i == j ? !Chance(rng, 10) : (i > j ? !Chance(rng, 15) : !Chance(rng, 70))) continue;
      line(std::to_string(i) + "," + std::to_string(j) + ", " + NumberText(rng) + "," +
           NumberText(rng) + "," + NumberText(rng) + ",  ! Jx, Jy, Jz ");
    }
  line("END");
  for (int q = 1; q <= g.qubits; ++q) {
    const std::string n = std::to_string(q);
    // "SPIN : 12(x)" is qubit 1: the character before "(" is dropped.
    line(Chance(rng, 20) ? "SPIN : " + n + "2(x)"
                         : "SPIN : " + n + " (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, "
                                           "Omega_z, phi_x, phi_y, phi_z)");
    const int count = Chance(rng, 25) ? Pick(rng, 13) : 12;
    std::string values;
    for (int k = 0; k < count; ++k)
      values += NumberText(rng) + (Chance(rng, 10) ? " " : ", ");
    line(values);
    after(10);
    line("END");
  }
  line("NUMBER OF FIELD STEPS");
  line(std::to_string(Pick(rng, 4)) + (Chance(rng, 20) ? " ! main steps" : ""));
  after(10);
  line("END");
  switch (Pick(rng, 4)) {
  case 0:
    line("TIME STEP");
    line(OneOf(rng, {".1", "0.25", ".333333333333333314829616256", "1"}));
    break;
  case 1: {  // as the writer writes it
    static const char* const pairs[][2] = {{" .25", "1.5707963267949"},
                                           {" .1", ".628318530717958"},
                                           {" 2.5", "15.707963267949"}};
    const auto& p = pairs[Pick(rng, 3)];
    line(std::string("TIME STEP ; ") + p[0] + "* 2 * PI");
    line(p[1]);
    break;
  }
  case 2:  // by hand, with all the digits
    line("TIME STEP ; .1 * 2 * PI");
    line(OneOf(rng, {"0.62831853071795865", ".6283185307179586", "0.63"}));
    break;
  default:
    line("TIME STEP (in units of 2 PI)");
    line(".1570796326794897");
    break;
  }
  after(15);
  line("END");
  line("NUMBER OF INTERMEDIATE TIME STEPS");
  line(std::to_string(Pick(rng, 4)));
  after(10);
  line("END");
  if (initialize) {
    switch (Pick(rng, 4)) {
    case 0: line("INITIAL STATE: GROUND STATE"); break;
    case 1: line("INITIAL STATE: SPIN UP"); break;
    case 2: line("INITIAL STATE: SPIN DOWN"); break;
    default:
      g.seed = 1 + Pick(rng, 278332379);
      line("INITIAL STATE: RANDOM");
      line(std::to_string(g.seed));
      break;
    }
    line("END");
  }
  line(Chance(rng, 50) ? "NO CHECK NORM" : "CHECK NORM");
  line("!ABOUT");
  static const char* const about[] = {"!a pulse", "!", "!two  blanks", "! END", "!END too",
                                      "!about the ABOUT block"};
  line(OneOf(rng, about));
  if (!initialize && Chance(rng, 40))
    line(OneOf(rng, {"!keeps the initial state: random phases", "!from the : ground state",
                     "!ends in : spin down"}));
  line("!END");
  return g;
}

// A program file with the forms its reading rules know, and some they skip.
inline std::string GenerateProgram(Rng& rng) {
  static const char* const lines[] = {
      "!Quantum program progs\\x.kvp", "@INITIALIZE.MI", "@ X.mi ! comment", "@X.MP#note",
      "!BREAKPOINT", "!breakpoint", "#comment", "", "@", "@.MI", "@a!b", "@#", "@  Pulse.MI  ",
      "@sub\\loop.MP", "text", "!", "@x.mi!", "@ab!cd#ef"};
  std::string t;
  for (int n = Pick(rng, 12); n > 0; --n) t += std::string(OneOf(rng, lines)) + "\r\n";
  return t;
}

// Mutates `text`: flipped, inserted and deleted bytes, keywords dropped in, lines repeated.
inline std::string Mutate(Rng& rng, std::string text) {
  static const char* const words[] = {"END", "!END", "SPIN : 3 (", "TIME STEP ; PI", ",",
                                      "INITIAL STATE: RANDOM", "CHECK NORM", "\r\n", "\n",
                                      "(", ":", ";", "!ABOUT", "HEISENBERG INTERACTION\r\n",
                                      "1E308", "9999999999", "-", ".", "E"};
  for (int n = 1 + Pick(rng, 6); n > 0; --n) {
    const std::size_t at = text.empty() ? 0 : rng() % (text.size() + 1);
    switch (Pick(rng, 5)) {
    case 0:
      if (at < text.size()) text[at] = static_cast<char>(rng());
      break;
    case 1: text.insert(at, 1, static_cast<char>(rng())); break;
    case 2: text.erase(at, static_cast<std::size_t>(Pick(rng, 16))); break;
    case 3: text.insert(at, OneOf(rng, words)); break;
    default: {
      const std::size_t end = text.find('\n', at);
      if (end != std::string::npos) text.insert(at, text.substr(at, end - at + 1));
      break;
    }
    }
  }
  return text;
}

inline std::string RandomBytes(Rng& rng) {
  std::string s(static_cast<std::size_t>(Pick(rng, 400)), '\0');
  for (char& c : s) c = static_cast<char>(rng());
  return s;
}

} // namespace orvex::fuzz
