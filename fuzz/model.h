#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// Plays operations on two containers and two parcels, which `data` chooses, and the same ones on a model that is
// written to be obvious. Compares results, log texts and contents after each step. `takeLog` returns the texts
// logged since it was last called. Returns an empty text, or what differed at which step.
std::string RunModel(const uint8_t* data, size_t size, const std::function<std::vector<std::string>()>& takeLog);
