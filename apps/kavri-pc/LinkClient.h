// The PC side of the link: one TCP connection to a controller.
#ifndef KAVRI_PC_LINKCLIENT_H
#define KAVRI_PC_LINKCLIENT_H

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

// Every failure of the link, with a message fit for a person.
class LinkError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The IPv4 address of a host name or dotted address; LinkError if none.
sockaddr_in ResolveIPv4(const std::string& host, int port);

class LinkClient {
 public:
  LinkClient(const std::string& host, int port, int timeoutSeconds);
  ~LinkClient();
  LinkClient(const LinkClient&) = delete;
  LinkClient& operator=(const LinkClient&) = delete;

  // Sends a whole command in one write, as the controller requires.
  void Send(const void* command, size_t length);
  // Reads exactly `length` bytes of reply and checks its reply code.
  void Receive(void* reply, size_t length, uint32_t expectedCode, const char* what);

  template <typename Command, typename Reply>
  Reply Exchange(const Command& command, uint32_t replyCode, const char* what) {
    Send(&command, sizeof command);
    Reply reply{};
    Receive(&reply, sizeof reply, replyCode, what);
    return reply;
  }

 private:
  std::string peer_;
  int fd_ = -1;
};

#endif
