#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// What one step of a run is chosen by.
constexpr size_t STEP_BYTES = 32;

// Plays operations on two containers and two parcels, one for each STEP_BYTES of `data`, and the same ones on a
// model that is written to be obvious. Compares results, log lines and contents after each step. Returns an empty
// text, or the operations up to the first difference, and what differed.
std::string RunModel(const uint8_t* data, size_t size);
