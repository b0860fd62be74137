#pragma once

// Opens the system's Bluetooth settings, so that the user can switch Bluetooth on. Returns false
// when this system has no settings page that the program knows how to open.
bool openBluetoothSettings();
