#pragma once

// Names the application: name and display name, version and window icon.
void applyApplicationIdentity();
