// Scalar types and result codes shared by every CHI record and platform call.
#ifndef ZELK_PLATFORM_CHITYPES_H
#define ZELK_PLATFORM_CHITYPES_H

#include <stddef.h>
#include <stdint.h>

extern "C" {

typedef int      BOOL;
typedef int      INT;
typedef int32_t  INT32;
typedef uint32_t UINT;
typedef uint32_t UINT32;
typedef uint8_t  UINT8;
typedef uint8_t  UCHAR;
typedef uint64_t UINT64;
typedef int64_t  INT64;
typedef size_t   SIZE_T;
typedef char     CHAR;
typedef float    FLOAT;
typedef double   DOUBLE;

typedef void* CHIHANDLE;
typedef void* CHIMETADATAHANDLE;
typedef void* CHIFENCEHANDLE;

typedef int32_t CDKResult;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

static const CDKResult CDKResultSuccess           = 0;
static const CDKResult CDKResultEFailed           = 1;
static const CDKResult CDKResultEUnsupported      = 2;
static const CDKResult CDKResultEInvalidState     = 3;
static const CDKResult CDKResultEInvalidArg       = 4;
static const CDKResult CDKResultEInvalidPointer   = 5;
static const CDKResult CDKResultENoSuch           = 6;
static const CDKResult CDKResultEOutOfBounds      = 7;
static const CDKResult CDKResultENoMemory         = 8;
static const CDKResult CDKResultETimeout          = 9;
static const CDKResult CDKResultENoMore           = 10;
static const CDKResult CDKResultENeedMore         = 11;
static const CDKResult CDKResultEExists           = 12;
static const CDKResult CDKResultEPrivLevel        = 13;
static const CDKResult CDKResultEResource         = 14;
static const CDKResult CDKResultEUnableToLoad     = 15;
static const CDKResult CDKResultEInProgress       = 16;
static const CDKResult CDKResultETryAgain         = 17;
static const CDKResult CDKResultEBusy             = 18;
static const CDKResult CDKResultEReentered        = 19;
static const CDKResult CDKResultEReadOnly         = 20;
static const CDKResult CDKResultEOverflow         = 21;
static const CDKResult CDKResultEOutOfDomain      = 22;
static const CDKResult CDKResultEInterrupted      = 23;
static const CDKResult CDKResultEWouldBlock       = 24;
static const CDKResult CDKResultETooManyUsers     = 25;
static const CDKResult CDKResultENotImplemented   = 26;
static const CDKResult CDKResultEDisabled         = 27;
static const CDKResult CDKResultECancelledRequest = 28;

} // extern "C"

#endif // ZELK_PLATFORM_CHITYPES_H
