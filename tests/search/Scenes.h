// Photos for the search tests: random scenes whose colour tiles sum to 1, and copies of them
// changed by any amount.
#ifndef ORVANE_TESTS_SEARCH_SCENES_H_
#define ORVANE_TESTS_SEARCH_SCENES_H_

#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "database/CSignatureDatabase.h"

using Features = std::map<std::string, std::vector<float>>;

inline CSignatureDatabase::FeatureTiles tilesOf(const Features& features) {
  return [&features](const std::string& name, uint32_t) { return features.at(name).data(); };
}

// Tiles of `bins` values that sum to 1 (colour), or edge strengths up to 0.5.
inline Features scene(std::mt19937& random) {
  std::uniform_real_distribution<float> unit(0.0f, 1.0f);
  Features f;
  for (auto [name, count, bins] : {std::tuple<const char*, int, int>{"EDG", 96, 6},
                                   {"HUE", 144, 16}, {"SAT", 36, 4}, {"VAL", 36, 4}}) {
    std::vector<float>& v = f[name];
    for (int tile = 0; tile < count / bins; ++tile) {
      float sum = 0.0f;
      for (int b = 0; b < bins; ++b) sum += v.emplace_back(unit(random) * unit(random));
      if (std::string(name) == "EDG") continue;
      for (int b = 0; b < bins; ++b) v[tile * bins + b] /= sum;
    }
  }
  return f;
}

// The scene with each value moved towards a random one by `strength`.
inline Features changed(const Features& base, float strength, std::mt19937& random) {
  Features noise = scene(random);
  Features f = base;
  for (auto& [name, v] : f) {
    for (size_t i = 0; i < v.size(); ++i) v[i] += strength * (noise[name][i] - v[i]);
  }
  return f;
}

#endif  // ORVANE_TESTS_SEARCH_SCENES_H_
