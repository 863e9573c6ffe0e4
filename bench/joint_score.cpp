// Modes of several records together, as JSON on standard output. The file has a block of lines "time value" or "time
// real imaginary" a record, with an empty line between blocks. "amplitude" and "phase" are those of the first record,
// null where they are below five standard errors.
#include <tessel/modes.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace {

std::string number(double v)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.17g", v);
    return std::isfinite(v) ? std::string(text) : std::string("null");
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: joint_score FILE\n";
        return 2;
    }
    std::ifstream file(argv[1]);
    std::string line;
    std::vector<tessel::modes::Record> records;
    std::vector<std::complex<double>> samples;
    double start = 0, spacing = 0, last = 0;
    bool complex = false;
    const auto end_block = [&] {
        if (samples.empty())
            return;
        tessel::modes::Record& record = records.emplace_back();
        record.start = start;
        spacing = (last - start) / static_cast<double>(samples.size() - 1);
        if (complex) {
            record.samples = samples;
        } else {
            std::vector<double> real;
            for (const std::complex<double>& v : samples)
                real.push_back(v.real());
            record.samples = real;
        }
        samples.clear();
    };
    while (std::getline(file, line)) {
        char* at = line.data();
        char* end = nullptr;
        double columns[3] = {0, 0, 0};
        int count = 0;
        for (double v = std::strtod(at, &end); end != at && count < 3; v = std::strtod(at, &end)) {
            columns[count++] = v;
            at = end;
        }
        if (count < 2) {
            end_block();
            continue;
        }
        complex = complex || count == 3;
        if (samples.empty())
            start = columns[0];
        last = columns[0];
        samples.emplace_back(columns[1], columns[2]);
    }
    end_block();
    const std::clock_t begin = std::clock();
    tessel::modes::JointResult result;
    try {
        result = tessel::modes::analyseJointly(records, spacing);
    } catch (const std::exception& e) {
        std::cerr << e.what() << '\n';
        return 1;
    }
    const double seconds = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
    const double reference = result.records.front().referenceTime - records.front().start;
    std::cout << "{\"reference_time\": " << number(reference) << ", \"seconds\": " << number(seconds)
              << ", \"first_sample\": " << result.records.front().firstSample
              << ", \"decimation\": " << result.decimation << ", \"chi2\": " << number(result.reducedChiSquare)
              << ", \"modes\": [";
    const char* comma = "";
    for (const tessel::modes::JointMode& m : result.modes) {
        tessel::modes::Residue r = m.residues.front();
        if (!(r.amplitude > 5 * r.amplitudeError))
            r = {NAN, NAN, NAN, NAN};
        std::cout << comma << "\n {\"frequency\": " << number(m.frequency) << ", \"decay\": " << number(m.decay)
                  << ", \"amplitude\": " << number(r.amplitude) << ", \"phase\": " << number(r.phase)
                  << ", \"frequency_se\": " << number(m.frequencyError) << ", \"decay_se\": " << number(m.decayError)
                  << ", \"amplitude_se\": " << number(r.amplitudeError) << ", \"phase_se\": " << number(r.phaseError)
                  << ", \"significance\": " << number(m.significance) << "}";
        comma = ",";
    }
    std::cout << "],\n \"remarks\": [";
    comma = "";
    for (const tessel::modes::Remark& r : result.remarks) {
        std::cout << comma << "\n {\"code\": \"" << name(r.code) << "\", \"value\": " << number(r.value)
                  << ", \"text\": \"" << r.text << "\"}";
        comma = ",";
    }
    std::cout << "]}\n";
    return 0;
}
