#include <iterator>

#include "apps/orlix/Command.h"

namespace orlix {

const AddCommand kCommands[] = {AddRunCommand,    AddRenderCommand, AddValidateCommand, AddInfoCommand,
                                AddVerifyCommand, AddParamsCommand, AddConvertCommand};
const std::size_t kCommandCount = std::size(kCommands);

}  // namespace orlix
