// All that stands in for the operating system, the windows and the laboratory in the native tests,
// and the fixture that starts every test from the same state.
#pragma once

#include "tests/doubles/lab_library.h"
#include "tests/doubles/lab_serial.h"
#include "tests/doubles/memory_dialog.h"
#include "tests/doubles/memory_screen.h"
#include "tests/doubles/memory_surface.h"
#include "tests/doubles/script.h"
#include "tests/doubles/scripted_client.h"
#include "tests/doubles/temp_files.h"
#include "tests/doubles/virtual_clock.h"
#include "virtual_lab/lab.h"

#include <gtest/gtest.h>

// The program's own records as they are before it starts.
void resetProgram();

// The whole simulated world: an empty desktop, a laboratory in order, no window, nothing scripted.
void prepareWorld();

// No window is open and nothing is broken when a test begins. At its end no box may have come
// unexpected, no planned answer be left, no drawing context, bitmap or window context leak.
class LabTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
};

// The same with the main window and the connected stage and laser board, as after a start.
class ConnectedTest : public LabTest {
protected:
    void SetUp() override;
};

// The same with an empty main window open.
class WindowTest : public LabTest {
protected:
    void SetUp() override {
        LabTest::SetUp();
        openBareWindow();
    }
};
