// The daemon's socket: requests of the preload library and control commands, one connection per thread of a program.
#pragma once

#include <map>
#include <memory>

#include "daemon/board.h"
#include "daemon/peer.h"
#include "page/protocol.h"

namespace vboard {

class Server {
public:
    explicit Server(Board &board);
    ~Server();

    // Ends the loop when the last holder (a running `vboard run`) has disconnected.
    void stop_when_unheld(bool stop) { stop_when_unheld_ = stop; }

private:
    struct Client;
    void accept_client();
    void serve(int fd);
    void drop(int fd);
    void hold(const std::shared_ptr<Client> &client);
    void release(Client &client);
    void handle(const std::shared_ptr<Client> &client, const RequestHeader &header, Bytes payload);
    void request(const std::shared_ptr<Client> &client, const RequestHeader &header, Bytes payload);
    int handle_transfer(const std::shared_ptr<Client> &client, const RequestHeader &header, const Bytes &payload);
    void open_channel(const std::shared_ptr<Client> &client, const RequestHeader &header);
    void read_text(const std::shared_ptr<Client> &client, const RequestHeader &header);
    void control(const std::shared_ptr<Client> &client, const RequestHeader &header, const Bytes &payload);
    Answer answer_for(const std::shared_ptr<Client> &client, uint32_t id);

    Board &board_;
    Acceptor listener_;
    std::map<int, std::shared_ptr<Client>> clients_;
    Bytes message_ = Bytes(sizeof(RequestHeader) + kMaxPayload);
    std::map<uint32_t, uint64_t> positions_; // positions of notifying attributes, by the socket's serial
    unsigned holders_ = 0;
    bool stop_when_unheld_ = true;
};

} // namespace vboard
