#include <iterator>

#include "apps/orlix/Command.h"

namespace orlix {

const AddCommand kCommands[] = {AddRunCommand, AddValidateCommand, AddInfoCommand, AddVerifyCommand, AddParamsCommand};
const std::size_t kCommandCount = std::size(kCommands);

}  // namespace orlix
