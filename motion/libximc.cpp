// Finds the stage controllers' functions in their library.
#include "motion/libximc.h"

#include "instruments/vendor_library.h"

Libximc loadLibximc() {
    Libximc found;
    LibraryHandle library = loadVendorLibrary("Stage library", "libximc.dll");
    if (!library) return found;
    bindFunction(found.ximc_version, library, "ximc_version", 520);
    bindFunction(found.set_bindy_key, library, "set_bindy_key", 540);
    bindFunction(found.enumerate_devices, library, "enumerate_devices", 508);
    bindFunction(found.free_enumerate_devices, library, "free_enumerate_devices", 509);
    bindFunction(found.get_device_count, library, "get_device_count", 517);
    bindFunction(found.get_device_name, library, "get_device_name", 518);
    // Their ordinals are nowhere written down: by name alone.
    bindFunction(found.get_enumerate_device_controller_name, library,
                 "get_enumerate_device_controller_name");
    bindFunction(found.get_enumerate_device_stage_name, library, "get_enumerate_device_stage_name");
    bindFunction(found.open_device, library, "open_device", 504);
    bindFunction(found.close_device, library, "close_device", 506);
    bindFunction(found.get_engine_settings, library, "get_engine_settings", 13);
    bindFunction(found.set_engine_settings, library, "set_engine_settings", 11);
    bindFunction(found.get_status, library, "get_status", 513);
    bindFunction(found.command_stop, library, "command_stop", 61);
    bindFunction(found.command_move, library, "command_move", 63);
    return found;
}
