#include "fluids/channels/ChannelTypes.h"

#include "fluids/channels/ChannelPair.h"
#include "fluids/channels/ChannelValue.h"
#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"

namespace orlix {

void RegisterChannelTypes(NodeFactory& factory) {
  factory.Add<ScalarGridChannel>();
  factory.Add<VectorGridChannel>();
  factory.Add<FuelGridChannel>();
  factory.Add<FireGridChannel>();
  factory.Add<TemperatureGridChannel>();
  factory.Add<ChannelPair>();
  factory.Add<ChannelValue>();
}

}  // namespace orlix
