#include "fluids/channels/ScalarChannels.h"

namespace orlix {

bool FuelGridChannel::ReadParameters() {
  const bool read = ScalarGridChannel::ReadParameters();
  ignitionTemperature = handler.GetInt(kIgnitionTemperatureId);
  return read;
}

bool FireGridChannel::ReadParameters() {
  const bool read = ScalarGridChannel::ReadParameters();
  flameTemperature = handler.GetDouble(kFlameTemperatureId);
  coolingTimeCold = handler.GetDouble(kCoolingTimeColdId);
  coolingTimeHot = handler.GetDouble(kCoolingTimeHotId);
  return read;
}

}  // namespace orlix
