#ifndef MEMBLOCK_EXAMPLES_MEASURE_DRAWING_H
#define MEMBLOCK_EXAMPLES_MEASURE_DRAWING_H

#include <memblock/imaging/image.h>
#include <memblock/imaging/stencil.h>

#include <optional>
#include <string>

namespace measure {

/// A picture as a PNG file of 8 bit grey, its lowest value black and its highest white.
std::string GreyPng(NKelmic::Image const& picture);

/// A PNG file as large as the picture of `objects`, clear but for the pixels of each object that
/// lie beside another object or beside none.
std::string OutlinePng(NKelmic::Stencil const& objects);

/// How often each value occurs, as a plot: at most 256 columns from the lowest to the highest
/// value, the counts on a logarithmic axis. An SVG element.
std::string HistogramSvg(NKelmic::Image const& picture, std::optional<double> threshold);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_DRAWING_H
