#pragma once

#include <cstdint>
#include <string>
#include <vector>

// "[#####-----]  1.2 / 3.6 s", to be drawn over and over on one line.
std::string ProgressBar(double doneSeconds, double totalSeconds);

// Minimum, median, 99 % and maximum of `latenessUs`, and a histogram of it. Empty for none.
std::string LatenessReport(std::vector<int64_t> latenessUs);
