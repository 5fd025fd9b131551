// Services of controllers with a radio or an I2C bus. Downloaded code built
// for those links against them through the address table; here they only
// answer so that such code runs.
#include "host/KavriState.h"

extern "C" {

// Always false: a program that asks must end its time slice now.
bool CheckTimeSliceCanContinue(shm_if_s*) { return false; }
void BluetoothMaintenance(void) {}
int BluetoothSendMessage(void) { return 1; }
void BluetoothSetReceiveCallback(void) {}
int BluetoothGetSelfRadioCallNumber(void) { return 1; }
void BluetoothSetup(void) {}
void I2C_Setup(void) {}
int I2C_Write(void) { return 1; }
int I2C_Read(void) { return 1; }

}
