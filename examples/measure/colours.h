#ifndef MEMBLOCK_EXAMPLES_MEASURE_COLOURS_H
#define MEMBLOCK_EXAMPLES_MEASURE_COLOURS_H

#include <measure/picture.h>

namespace measure {

/// Which values of coloured pixels are looked at.
enum class Channel { red, green, blue, grey };

/// Take one value a pixel out of rows of three samples: a channel, or their average, which is
/// (r + g + b + 2) / 3, rounded down, of whole numbers. `values` gets `pixels` values of the
/// header's type.
void TakeChannel(PageHeader const& header, Channel channel, unsigned long pixels,
                 unsigned char const* samples, unsigned char* values);

/// A page of one sample a pixel: the page itself, or a channel of it.
Page GreyPage(Page&& page, Channel channel);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_COLOURS_H
