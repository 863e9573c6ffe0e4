// A picture of a record and its modes, drawn by gnuplot.
#ifndef TESSEL_APP_PLOT_H
#define TESSEL_APP_PLOT_H

#include "app/outcome.h"

#include <string>

namespace tessel::app {

/// @throws Error  if gnuplot is not there
void check_gnuplot();

/// The file for one of several records: "modes.png", "modes-2.png", ...
std::string plot_name(const std::string& file, std::size_t index);

/// What gnuplot is told: record and model, what the model leaves, and the modes over frequency. A long record is drawn
/// as the band between the smallest and the largest samples of many parts.
std::string plot_script(const Outcome& outcome, const std::string& file);

/// A string in gnuplot's single quotes.
std::string in_quotes(const std::string& text);

/// Draws by a script that writes this file.
/// @throws Error  if gnuplot fails
void draw(const std::string& script, const std::string& file);

} // namespace tessel::app

#endif
