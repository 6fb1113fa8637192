// The external multiport switch of board type 8: remembers what is set and answers it back.
#pragma once

#include <map>
#include <string>

#include "daemon/models/switch.h"

namespace vboard {

class Multiport : public Model {
public:
    using Model::Model;

    // One call of the switch's driver, by name: the port, then values. The first word of the answer is the result.
    SwitchWords call(const std::string &name, const SwitchWords &in);

    static ControlTable commands();

private:
    bool fitted_ = true;
    std::map<std::pair<std::string, int64_t>, SwitchWords> values_; // setting and port
    std::map<std::string, int> failures_;
    std::string calls_;
};

} // namespace vboard
