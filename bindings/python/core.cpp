// The extension behind the package for Python: arrays in, arrays out, the interpreter's lock released in between. What
// users see, their errors included, is written in Python.
#include <tessel/leastsq_prony_svd.h>
#include <tessel/modes.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <complex>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace py = pybind11;
using namespace py::literals;
using namespace tessel::modes;

namespace {

/// The only copy of a record: NumPy converts from any type of number and any stride into the vector.
template <typename Sample>
std::vector<Sample> samples_of(const py::array& y)
{
    std::vector<Sample> samples(static_cast<std::size_t>(y.size()));
    py::array_t<Sample> view(y.size(), samples.data(), py::none()); // does not own
    view[py::ellipsis()] = y;
    return samples;
}

/// Options::progress: runs the interpreter's signal handlers now and then, and the function of the user.
class Listener
{
public:
    explicit Listener(py::object callback) : callback_(std::move(callback)) {}

    bool operator()(const Progress& p)
    {
        // Taking the lock may wait for other threads; without a function to call it is taken a few times a second.
        if (callback_.is_none()) {
            const auto now = std::chrono::steady_clock::now();
            if (now < next_)
                return true;
            next_ = now + std::chrono::milliseconds(50);
        }
        const py::gil_scoped_acquire lock;
        if (PyErr_CheckSignals() != 0)
            throw py::error_already_set();
        if (callback_.is_none())
            return true;
        const py::object answer = callback_(p.stage, p.modes, p.part);
        if (answer.is_none())
            return true;
        const int truth = PyObject_IsTrue(answer.ptr());
        if (truth < 0)
            throw py::error_already_set();
        return truth != 0;
    }

private:
    py::object callback_;
    std::chrono::steady_clock::time_point next_{};
};

/// What both analyses are told. The listener must outlive the options.
Options options_of(Listener& listener, std::optional<double> lowest, std::optional<double> highest,
                   std::optional<std::size_t> first, std::optional<double> noise, std::optional<std::size_t> max_modes)
{
    Options options;
    options.lowest = lowest;
    options.highest = highest;
    options.first = first;
    options.noise = noise;
    options.mostModes = max_modes;
    options.progress = [&listener](const Progress& p) { return listener(p); };
    return options;
}

py::list list_of(const std::vector<Remark>& remarks)
{
    py::list list;
    for (const Remark& remark : remarks)
        list.append(py::make_tuple(name(remark.code), remark.value, remark.text));
    return list;
}

py::dict find_modes(const py::array& y, bool complex, double dt, double t0, std::optional<double> lowest,
                    std::optional<double> highest, std::optional<std::size_t> first, std::optional<double> noise,
                    std::optional<std::size_t> max_modes, const py::object& progress)
{
    Listener listener(progress);
    const Options options = options_of(listener, lowest, highest, first, noise, max_modes);
    const auto analysed = [&](const auto& samples) {
        const py::gil_scoped_release unlocked;
        return analyse(samples, t0, dt, options);
    };
    const Result found = complex ? analysed(samples_of<std::complex<double>>(y)) : analysed(samples_of<double>(y));

    py::list modes;
    for (const Mode& m : found.modes)
        modes.append(py::make_tuple(m.frequency, m.frequencyError, m.decay, m.decayError, m.quality, m.qualityError,
                                    m.amplitude, m.amplitudeError, m.phase, m.phaseError, m.significance,
                                    name(m.kind)));
    return py::dict("modes"_a = modes, "remarks"_a = list_of(found.remarks), "reference_time"_a = found.referenceTime,
                    "first_sample"_a = found.firstSample, "first_sample_reason"_a = name(found.firstSampleReason),
                    "decimation"_a = found.decimation, "noise"_a = found.noise, "chi2"_a = found.reducedChiSquare,
                    "band"_a = py::make_tuple(found.lowest, found.highest));
}

/// Of each record an array, whether it is complex, and its start.
py::dict find_modes_jointly(const std::vector<std::tuple<py::array, bool, double>>& records, double dt,
                            std::optional<double> lowest, std::optional<double> highest,
                            std::optional<std::size_t> first, std::optional<double> noise,
                            std::optional<std::size_t> max_modes, const py::object& progress)
{
    Listener listener(progress);
    const Options options = options_of(listener, lowest, highest, first, noise, max_modes);
    std::vector<Record> set;
    for (const auto& [y, complex, t0] : records) {
        Record& record = set.emplace_back();
        if (complex)
            record.samples = samples_of<std::complex<double>>(y);
        else
            record.samples = samples_of<double>(y);
        record.start = t0;
    }
    const auto analysed = [&] {
        const py::gil_scoped_release unlocked;
        return analyseJointly(set, dt, options);
    };
    const JointResult found = analysed();

    py::list modes, parts;
    for (const JointMode& m : found.modes) {
        py::list residues;
        for (const Residue& r : m.residues)
            residues.append(py::make_tuple(r.amplitude, r.amplitudeError, r.phase, r.phaseError));
        modes.append(py::make_tuple(m.frequency, m.frequencyError, m.decay, m.decayError, m.quality, m.qualityError,
                                    m.significance, name(m.kind), residues));
    }
    for (const JointRecord& r : found.records)
        parts.append(py::make_tuple(r.referenceTime, r.firstSample, r.noise, r.reducedChiSquare, r.constant));
    return py::dict("modes"_a = modes, "records"_a = parts, "remarks"_a = list_of(found.remarks),
                    "first_sample_reason"_a = name(found.firstSampleReason), "decimation"_a = found.decimation,
                    "chi2"_a = found.reducedChiSquare, "band"_a = py::make_tuple(found.lowest, found.highest));
}

/// The library's own routine, argument by argument. The library refuses an order that it cannot take before it writes.
py::tuple prony(const py::array_t<std::complex<double>, py::array::c_style | py::array::forcecast>& y, double dt,
                std::int32_t m)
{
    const auto n = static_cast<std::int32_t>(y.size());
    py::array_t<std::complex<double>> poles(std::max(m, 0)), residues(std::max(m, 0));
    std::array<double, 5> measures{};
    std::int32_t flag = 0;
    std::array<char, 80> message{};
    {
        const std::complex<double>* samples = y.data();
        std::complex<double>*residue = residues.mutable_data(), *pole = poles.mutable_data();
        const py::gil_scoped_release unlocked;
        LEASTSQ_PRONY_SVD(&n, &n, samples, &dt, &m, &m, residue, pole, &measures[0], &measures[1], &measures[2],
                          &measures[3], &measures[4], &flag, message.data(), static_cast<std::int32_t>(message.size()));
    }
    std::string text(message.data(), message.size());
    text.erase(text.find_last_not_of(' ') + 1);
    return py::make_tuple(flag, text, poles, residues, measures);
}

const char* fault_name(InputFault fault)
{
    switch (fault) {
    case InputFault::tooFewSamples:
        return "tooFewSamples";
    case InputFault::notFinite:
        return "notFinite";
    case InputFault::spacing:
        return "spacing";
    case InputFault::start:
        return "start";
    case InputFault::option:
        return "option";
    }
    return "";
}

} // namespace

PYBIND11_MODULE(_core, module)
{
    module.attr("__version__") = TESSEL_VERSION;
    module.def("find_modes", &find_modes);
    module.def("find_modes_jointly", &find_modes_jointly);
    module.def("prony", &prony);
    py::register_local_exception_translator([](std::exception_ptr thrown) {
        const auto raise = [](const char* type, const auto&... arguments) {
            const py::object kind = py::module_::import("tessel._errors").attr(type);
            PyErr_SetObject(kind.ptr(), kind(arguments...).ptr());
        };
        try {
            if (thrown)
                std::rethrow_exception(std::move(thrown));
        } catch (const InputError& e) {
            raise("InputError", e.what(), fault_name(e.fault()), e.index());
        } catch (const Stopped& e) {
            raise("Stopped", e.what());
        }
    });
}
