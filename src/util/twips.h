#pragma once
// Window geometry is given in twips, as the device tool's forms were laid out: 15 twips are
// one pixel at 100 % scale; Qt scales for high DPI.
namespace veltro {

constexpr int tw(int twips) { return (twips + 7) / 15; }

} // namespace veltro
