// Packed numbers between the system and a registered program. On the wire of a real system a
// packed number is its digits; the point is where the dictionary type of the receiving side puts
// it. The classic interface carries no decimals for a scalar, so a classic program sends the
// digits alone and takes the scale of what it receives. The system therefore sends each packed
// value with all the decimals of its dictionary type, and reads the digits of each packed value it
// receives with them.
#pragma once

#include "engine/function.h"
#include "rfc_protocol/values.h"

namespace vsim::rfc {

// The parameters of a call of `function`: a value of a packed parameter, or of a packed field of a
// structure or table parameter, becomes a packed value with the type's decimals ("1.5" for P(2)
// becomes "1.50"). A value that does not convert, and any parameter or field the interface does not
// know, stays as it is: the program decides about it.
void packedForProgram(proto::NamedValues& values, const FunctionModule& function);

// A program's answer: the digits of each packed value the interface declares packed, read with the
// decimals of its type ("1050" and "10.50" are 10.50 for P(2)). Others stay as they are.
void packedFromProgram(proto::NamedValues& values, const FunctionModule& function);

}  // namespace vsim::rfc
