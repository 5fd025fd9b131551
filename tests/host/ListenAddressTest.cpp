// Where the controller listens: every address by default, one address when
// the host names it, and a clear refusal of anything that is not an address.
#include <gtest/gtest.h>

#include <string>

#include "ControllerProcess.h"
#include "TestClient.h"
#include "kavri/KavriLib.h"
#include "kavri/LinkProtocol.h"

namespace {

struct ListenCase {
  const char* bindAddress;
  const char* listening;  // as the kernel shows it
};

TEST(ListenAddress, ServerListensOnTheHostsAddressOrOnAll) {
  const ListenCase cases[] = {{nullptr, "00000000"}, {"", "00000000"}, {"127.0.0.1", "0100007F"}};
  for (const ListenCase& c : cases) {
    SCOPED_TRACE(c.bindAddress ? c.bindAddress : "(null)");
    ControllerProcess controller({.beforeInit = [&c] { KavriBindAddress = c.bindAddress; }});
    ASSERT_TRUE(controller.WaitUntilListening()) << controller.Stderr();
    EXPECT_EQ(ListeningAddressHex(controller.port()), c.listening);
    TestClient client(controller.port());
    client.SendWord(KavriCmdQueryStatus);
    EXPECT_EQ(client.Receive(sizeof(xoIF2013Reply_QueryStatus)).size(), sizeof(xoIF2013Reply_QueryStatus));
  }
}

TEST(ListenAddress, NameThatIsNotAnAddressFailsInitWithoutListening) {
  for (const char* bad : {"localhost", "127.0.0.256", "::1", "1.2.3"}) {
    SCOPED_TRACE(bad);
    ControllerProcess controller({.beforeInit = [bad] { KavriBindAddress = bad; }});
    EXPECT_EQ(controller.WaitForExit(), 3);  // the child's code for a failed KavriLib_Init
    EXPECT_EQ(controller.Stderr(), "ERROR bind address \"" + std::string(bad) +
                                       "\" is not an IPv4 address such as 127.0.0.1\n");
    EXPECT_FALSE(PortIsListening(controller.port()));
  }
}

}  // namespace
