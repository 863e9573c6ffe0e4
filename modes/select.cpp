#include "modes/select.h"
#include "modes/errors.h"
#include "modes/search.h"

#include <algorithm>
#include <cmath>

namespace tessel::modes {

double freedom(const Series& series, const Terms& terms, std::size_t n)
{
    const Layout layout(terms);
    const double rows = static_cast<double>(n) * (series.complex() ? 2 : 1);
    return std::max(1.0, rows - layout.total);
}

std::vector<double> wald(const Series& series, const Terms& terms, std::size_t n)
{
    std::vector<double> out(terms.size());
    if (terms.empty())
        return out;
    const ExtendedMatrix covariance = inverse_normal(Products(series, terms, n).normal(terms));
    const Layout layout(terms);
    for (std::size_t j = 0; j < terms.size(); ++j) {
        const int at = layout.linear[j];
        const Extended re = static_cast<Extended>(terms[j].c.real()), im = static_cast<Extended>(terms[j].c.imag());
        const Extended a = covariance(at, at);
        if (linearCount(terms[j]) == 1) {
            out[j] = static_cast<double>(re * re / a);
            continue;
        }
        const Extended b = covariance(at, at + 1), d = covariance(at + 1, at + 1);
        const Extended determinant = a * d - b * b;
        out[j] = static_cast<double>((re * re * d - 2 * re * im * b + im * im * a) / determinant);
    }
    return out;
}

namespace {

Feet feet_at(const Series& series, const Terms& terms, std::size_t n)
{
    std::vector<double> residual;
    evaluate(series, terms, n, &residual);
    return feet_of(series, terms, n, residual);
}

/// What a unit of chi^2 is: its value per degree of freedom, if that is above one.
double unit_of(const Series& series, const Refined& model, std::size_t n)
{
    const double reduced = model.chiSquare / freedom(series, model.terms, n);
    return std::max(1.0, reduced > 1.5 ? std::min(reduced, reduced_with_feet(series, model.terms, n)) : reduced);
}

double excess(const Feet& feet, const Term& term, std::size_t n)
{
    return feet.any() ? feet.excess(static_cast<double>(term.angle), n) : 1;
}

} // namespace

Terms prune(const Series& series, const Terms& terms, std::size_t n)
{
    Terms out;
    for (const Term& term : terms) {
        // energy of the term alone against noise
        const Terms one{term};
        const ExtendedMatrix g = Products(series, one, n).linear(one);
        const double energy = std::norm(term.c) * static_cast<double>(g(0, 0));
        if (energy > 2 * chance_score(n) * 0.2)
            out.push_back(term);
    }
    return out;
}

Refined thin(const Series& series, Refined model, std::size_t n, const Account& account)
{
    const double threshold = 2 * chance_score(n);
    std::size_t most = model.terms.size();
    const Feet feet = feet_at(series, model.terms, n);
    while (most > 0) {
        const double scale = unit_of(series, model, n);
        const std::vector<double> statistic = wald(series, model.terms, n);
        std::vector<std::size_t> weak;
        for (std::size_t j = 0; j < statistic.size(); ++j)
            if (!(statistic[j] > threshold * scale * excess(feet, model.terms[j], n)))
                weak.push_back(j);
        if (weak.empty())
            break;
        std::stable_sort(weak.begin(), weak.end(),
                         [&](std::size_t a, std::size_t b) { return statistic[a] < statistic[b]; });
        most = std::min(most, weak.size());
        weak.resize(most);
        std::vector<char> out(model.terms.size(), 0);
        for (const std::size_t j : weak)
            out[j] = 1;
        Terms rest;
        for (std::size_t j = 0; j < model.terms.size(); ++j)
            if (!out[j])
                rest.push_back(model.terms[j]);
        double most_rise = 0; // that chance explains
        for (const std::size_t j : weak)
            most_rise = std::max(most_rise, threshold * scale * excess(feet, model.terms[j], n));
        Refined without = refine(series, rest, n, 12, model.chiSquare + most_rise);
        if (!account(without))
            break;
        if (without.chiSquare - model.chiSquare < most_rise)
            model = std::move(without);
        else
            most /= 2;
    }
    return model;
}

Refined eliminate(const Series& series, Refined model, std::size_t n, std::vector<double>& significance,
                  const Account& account)
{
    model = thin(series, std::move(model), n, account);
    const double threshold = 2 * chance_score(n);
    const auto scale = [&] { return unit_of(series, model, n); };
    std::vector<char> kept(model.terms.size(), 0); // tested and found real since the last removal
    Feet feet;
    const auto statistics = [&] {
        feet = feet_at(series, model.terms, n);
        significance = wald(series, model.terms, n);
        for (std::size_t j = 0; j < significance.size(); ++j)
            significance[j] /= scale() * excess(feet, model.terms[j], n);
    };
    statistics();
    for (;;) {
        // least significant first
        std::size_t worst = model.terms.size();
        for (std::size_t j = 0; j < model.terms.size(); ++j)
            if (!kept[j] && (worst == model.terms.size() || significance[j] < significance[worst]))
                worst = j;
        if (worst == model.terms.size() || significance[worst] > 30 * threshold)
            break;
        Refined without = model;
        without.terms.erase(without.terms.begin() + static_cast<std::ptrdiff_t>(worst));
        const double unit = scale() * excess(feet, model.terms[worst], n);
        without = refine(series, without.terms, n, 20, model.chiSquare + threshold * unit);
        if (!account(without))
            break;
        const double rise = (without.chiSquare - model.chiSquare) / unit;
        if (rise < threshold) {
            model = without;
            statistics();
            kept.assign(model.terms.size(), 0);
        } else {
            kept[worst] = 1;
            significance[worst] = rise;
        }
    }
    for (double& s : significance)
        s /= threshold;
    return model;
}

} // namespace tessel::modes
