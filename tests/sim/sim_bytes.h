// Shared by the model tests: a start time, byte joining, and the row types' metatypes.
#pragma once

#include "sim/device_model.h"

#include <QMetaType>

#include <chrono>
#include <functional>

using Setup = std::function<void(veltro::sim::DeviceModel&)>;
Q_DECLARE_METATYPE(veltro::sim::Bytes)
Q_DECLARE_METATYPE(Setup)

namespace {

using namespace std::chrono_literals;
const veltro::sim::Clock::time_point T0 = veltro::sim::Clock::time_point{} + 1h;

veltro::sim::Bytes join(std::initializer_list<veltro::sim::Bytes> parts)
{
    veltro::sim::Bytes all;
    for (const veltro::sim::Bytes& p : parts)
        all.insert(all.end(), p.begin(), p.end());
    return all;
}

} // namespace
