// The identity of the test double of server_double.cpp.
#pragma once

#include <veltrane.h>

// {5B0C8E2A-3F1D-4C6B-9A27-1E8D4F6A0C31}
inline constexpr CLSID CLSID_ServerDouble = {
    0x5B0C8E2A, 0x3F1D, 0x4C6B, {0x9A, 0x27, 0x1E, 0x8D, 0x4F, 0x6A, 0x0C, 0x31}};
// What its GatewayService reads.
inline constexpr char16_t kDoubleService[] = u"served by the double";
