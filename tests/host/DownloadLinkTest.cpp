// The address table seen from a PC: a TCP client on loopback and a
// controller in a child process.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "ControllerProcess.h"
#include "TestClient.h"
#include "host/DownloadMode.h"
#include "kavri/LinkProtocol.h"
#include "kavri/TextGrph.h"

namespace {

TEST(DownloadLink, AddressTableReplyHoldsEveryServiceInItsFixedSlot) {
  ControllerProcess controller;
  ASSERT_TRUE(controller.WaitUntilListening()) << controller.Stderr();
  TestClient client(controller.port());
  client.SendWord(KavriCmdGetLibAddresses);
  std::vector<uint8_t> reply = client.Receive(sizeof(xoIF2013Reply_LibAddresses));
  ASSERT_EQ(reply.size(), 240u);
  client.SendWord(KavriCmdQueryStatus);  // nothing of the table is left over before its reply
  std::vector<uint8_t> next = client.Receive(4);
  EXPECT_EQ(next, std::vector<uint8_t>({0x3e, 0x72, 0xc9, 0xba}));
  uint32_t slots[KAVRI_LIB_ADDRESS_SLOTS];
  memcpy(slots, reply.data(), sizeof slots);
  EXPECT_EQ(slots[0], KavriReplyGetLibAddresses);
  // The forked controller shares this program's addresses.
  for (int slot = 1; slot < KAVRI_LIB_ADDRESS_SLOTS; ++slot)
    EXPECT_EQ(slots[slot], uint32_t(reinterpret_cast<uintptr_t>(kavri::kLibServices[slot - 1].address))) << slot;
  EXPECT_EQ(slots[59], uint32_t(reinterpret_cast<uintptr_t>(&TextGrph_Update)));
  EXPECT_TRUE(controller.WaitForStdout("Received get lib adresses command\n"));
}

TEST(AddressTable, SlotsAreAlphabeticalButForDisplaySetupAndAllDistinct) {
  std::vector<std::string> names;
  std::vector<void (*)()> addresses;
  for (const kavri::LibService& service : kavri::kLibServices) {
    names.push_back(service.name);
    addresses.push_back(service.address);
  }
  EXPECT_EQ(names[6], "DisplaySetup");  // slot 7
  names.erase(names.begin() + 6);
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
  std::sort(addresses.begin(), addresses.end());
  EXPECT_EQ(std::adjacent_find(addresses.begin(), addresses.end()), addresses.end());
  EXPECT_EQ(names.front(), "BluetoothGetSelfRadioCallNumber");
  EXPECT_EQ(names.back(), "TextGrph_Update");
}

}  // namespace
