// The switch's diagnostic shell: a line-oriented text session on a loopback port of the board's own.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "daemon/model.h"
#include "daemon/peer.h"

namespace vboard {

class SwitchShell : public Model {
public:
    using Model::Model;
    void start() override;

    static ControlTable commands();

private:
    struct Session {
        UniqueFd socket;
        std::string input;
        int result = 0;
    };
    void accept_session();
    void serve(int fd);
    void run(Session &session, const std::string &line);

    Acceptor listener_;
    std::map<int, std::unique_ptr<Session>> sessions_;
    std::string log_;
    std::string output_;
    int result_ = 0;
    bool silent_ = false;
};

} // namespace vboard
