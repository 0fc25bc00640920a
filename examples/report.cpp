#include "report.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

template <typename... Args>
std::string Format(const char* format, Args... args)
{
    std::array<char, 200> text{};
    snprintf(text.data(), text.size(), format, args...);
    return text.data();
}

}  // namespace

std::string ProgressBar(double doneSeconds, double totalSeconds)
{
    constexpr size_t WIDTH = 40;
    const auto filled = static_cast<size_t>(WIDTH * std::min(1.0, doneSeconds / totalSeconds));
    return "[" + std::string(filled, '#') + std::string(WIDTH - filled, '-') +
           Format("] %5.1f / %.1f s", doneSeconds, totalSeconds);
}

std::string LatenessReport(std::vector<int64_t> latenessUs)
{
    if (latenessUs.empty()) {
        return {};
    }
    std::sort(latenessUs.begin(), latenessUs.end());
    const auto quantile = [&](size_t percent) {
        return static_cast<long long>(latenessUs[(latenessUs.size() - 1) * percent / 100]);
    };
    std::string report = Format("  lateness: minimum %lld us, median %lld us, 99 %% %lld us, maximum %lld us\n",
                                quantile(0), quantile(50), quantile(99), quantile(100));

    constexpr size_t WIDTH = 50;
    constexpr std::array<int64_t, 10> limitsUs{20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, INT64_MAX};
    auto first = latenessUs.begin();
    for (const int64_t limitUs : limitsUs) {
        const auto last = std::lower_bound(first, latenessUs.end(), limitUs);
        const auto count = static_cast<size_t>(last - first);
        if (count > 0) {
            const size_t bar = (count * WIDTH + latenessUs.size() - 1) / latenessUs.size();
            const std::string range = limitUs != INT64_MAX ? Format("< %5lld us", static_cast<long long>(limitUs))
                                                           : Format(">= %4d us", 10000);
            report += "  " + range + Format(" %7zu ", count) + std::string(bar, '#') + "\n";
        }
        first = last;
    }
    return report;
}
