// Modes of a record in a text file of columns "time value" or "time real imaginary", as JSON on standard output.
#include <tessel/modes.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 3) {
        std::cerr << "usage: modes_score FILE [FIRST_SAMPLE]\n";
        return 2;
    }
    std::ifstream file(argv[1]);
    std::string line;
    std::vector<double> time, re, im;
    while (std::getline(file, line)) {
        char* at = line.data();
        char* end = nullptr;
        std::vector<double> columns;
        for (double v = std::strtod(at, &end); end != at; v = std::strtod(at, &end)) {
            columns.push_back(v);
            at = end;
        }
        if (columns.size() < 2)
            continue;
        time.push_back(columns[0]);
        re.push_back(columns[1]);
        if (columns.size() > 2)
            im.push_back(columns[2]);
    }
    const double start = time.at(0), spacing = (time.back() - time.front()) / static_cast<double>(time.size() - 1);
    tessel::modes::Options options;
    if (argc == 3)
        options.first = std::strtoul(argv[2], nullptr, 10);
    tessel::modes::Result result;
    try {
        if (im.empty()) {
            result = tessel::modes::analyse(re, start, spacing, options);
        } else {
            std::vector<std::complex<double>> both;
            for (std::size_t k = 0; k < re.size(); ++k)
                both.emplace_back(re[k], im.at(k));
            result = tessel::modes::analyse(both, start, spacing, options);
        }
    } catch (const std::exception& e) {
        std::cerr << e.what() << '\n';
        return 1;
    }
    const auto number = [](double v) {
        char text[40];
        std::snprintf(text, sizeof text, "%.17g", v);
        return std::isfinite(v) ? std::string(text) : std::string("null");
    };
    std::cout << "{\"reference_time\": " << number(result.referenceTime) << ", \"first_sample\": " << result.firstSample
              << ", \"decimation\": " << result.decimation << ", \"noise\": " << number(result.noise)
              << ", \"chi2\": " << number(result.reducedChiSquare) << ", \"modes\": [";
    const char* comma = "";
    for (const auto& m : result.modes) {
        std::cout << comma << "\n {\"frequency\": " << number(m.frequency) << ", \"decay\": " << number(m.decay)
                  << ", \"amplitude\": " << number(m.amplitude) << ", \"phase\": " << number(m.phase)
                  << ", \"frequency_se\": " << number(m.frequencyError) << ", \"decay_se\": " << number(m.decayError)
                  << ", \"amplitude_se\": " << number(m.amplitudeError) << ", \"phase_se\": " << number(m.phaseError)
                  << ", \"confidence\": " << number(m.significance) << ", \"kind\": " << static_cast<int>(m.kind) << "}";
        comma = ",";
    }
    std::cout << "],\n \"remarks\": [";
    comma = "";
    for (const auto& r : result.remarks) {
        std::cout << comma << "\n {\"code\": " << static_cast<int>(r.code) << ", \"value\": " << number(r.value)
                  << ", \"text\": \"" << r.text << "\"}";
        comma = ",";
    }
    std::cout << "]}\n";
    return 0;
}
