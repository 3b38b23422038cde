// Mutations of a stream that leave its packets in their places.
#pragma once

#include <cstddef>

enum : size_t { SETTINGS_SIZE = 4, PACKET_SIZE = 188 };
