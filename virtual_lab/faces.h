// The vendors' functions that the virtual laboratory exports, with the signatures by which the
// program calls them.
#pragma once

#include "camera/pylon_c.h"
#include "instruments/kxci.h"
#include "instruments/ni488.h"
#include "instruments/visa.h"
#include "motion/libximc.h"

#include <type_traits>

// clang-format off
#define LAB_LIBXIMC_FUNCTIONS(F)                                                                   \
    F(ximc_version) F(set_bindy_key) F(enumerate_devices) F(free_enumerate_devices)                \
    F(get_device_count) F(get_device_name) F(open_device) F(close_device)                          \
    F(get_engine_settings) F(set_engine_settings) F(get_status) F(command_stop) F(command_move)

#define LAB_PYLON_FUNCTIONS(F)                                                                     \
    F(PylonInitialize) F(PylonTerminate) F(GenApiGetLastErrorMessage)                              \
    F(PylonEnumerateDevices) F(PylonCreateDeviceByIndex) F(PylonDestroyDevice)                     \
    F(PylonDeviceOpen) F(PylonDeviceClose)                                                         \
    F(PylonDeviceFeatureIsReadable) F(PylonDeviceFeatureIsWritable)                                \
    F(PylonDeviceFeatureFromString) F(PylonDeviceFeatureToString)                                  \
    F(PylonDeviceSetIntegerFeature) F(PylonDeviceGetIntegerFeature)                                \
    F(PylonDeviceGetIntegerFeatureMin) F(PylonDeviceGetIntegerFeatureMax)                          \
    F(PylonDeviceSetFloatFeature) F(PylonDeviceGetFloatFeature)                                    \
    F(PylonDeviceGetFloatFeatureMin) F(PylonDeviceGetFloatFeatureMax)                              \
    F(PylonDeviceSetBooleanFeature) F(PylonDeviceExecuteCommandFeature)                            \
    F(PylonDeviceGetStreamGrabber) F(PylonStreamGrabberOpen) F(PylonStreamGrabberClose)            \
    F(PylonStreamGrabberSetMaxNumBuffer) F(PylonStreamGrabberSetMaxBufferSize)                     \
    F(PylonStreamGrabberGetPayloadSize) F(PylonStreamGrabberPrepareGrab)                           \
    F(PylonStreamGrabberRegisterBuffer) F(PylonStreamGrabberQueueBuffer)                           \
    F(PylonStreamGrabberStartStreamingIfMandatory) F(PylonStreamGrabberStopStreamingIfMandatory)   \
    F(PylonStreamGrabberGetWaitObject) F(PylonWaitObjectWait) F(PylonStreamGrabberRetrieveResult)  \
    F(PylonStreamGrabberFlushBuffersToOutput) F(PylonStreamGrabberDeregisterBuffer)                \
    F(PylonStreamGrabberFinishGrab)

// Exported for completeness; the program's own table does not have them.
#define LAB_FURTHER_PYLON_FUNCTIONS(F)                                                             \
    F(PylonDeviceFeatureIsImplemented) F(PylonDeviceFeatureIsAvailable)                            \
    F(PylonDeviceGetBooleanFeature)

#define LAB_NI488_FUNCTIONS(F)                                                                     \
    F(ibdev) F(ibclr) F(ibwrt) F(ibrd) F(ibonl) F(ThreadIbsta) F(ThreadIberr) F(ThreadIbcnt)

#define LAB_VISA_FUNCTIONS(F)                                                                      \
    F(viOpenDefaultRM) F(viFindRsrc) F(viFindNext) F(viOpen) F(viClose) F(viSetAttribute)          \
    F(viStatusDesc) F(viRead) F(viWrite)

#define LAB_KXCI_FUNCTIONS(F)                                                                      \
    F(OpenKXCIConnection_C) F(SendKXCICommand_C) F(CloseKXCIConnection_C)
// clang-format on

extern "C" {
#define DECLARE_FUNCTION(name) std::remove_pointer_t<decltype(Libximc::name)> name;
LAB_LIBXIMC_FUNCTIONS(DECLARE_FUNCTION)
#undef DECLARE_FUNCTION
#define DECLARE_FUNCTION(name) std::remove_pointer_t<decltype(PylonC::name)> name;
LAB_PYLON_FUNCTIONS(DECLARE_FUNCTION)
#undef DECLARE_FUNCTION
#define DECLARE_FUNCTION(name) std::remove_pointer_t<decltype(Ni488::name)> name;
LAB_NI488_FUNCTIONS(DECLARE_FUNCTION)
#undef DECLARE_FUNCTION
#define DECLARE_FUNCTION(name) std::remove_pointer_t<decltype(Visa::name)> name;
LAB_VISA_FUNCTIONS(DECLARE_FUNCTION)
#undef DECLARE_FUNCTION
#define DECLARE_FUNCTION(name) std::remove_pointer_t<decltype(Kxci::name)> name;
LAB_KXCI_FUNCTIONS(DECLARE_FUNCTION)
#undef DECLARE_FUNCTION

uint8_t PylonDeviceFeatureIsImplemented(void* device, const char* name);
uint8_t PylonDeviceFeatureIsAvailable(void* device, const char* name);
uint32_t PylonDeviceGetBooleanFeature(void* device, const char* name, uint8_t* value);
}
