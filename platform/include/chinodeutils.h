// CHI node utility library (libcom.qti.chinodeutils): interface copy, vendor-tag answer, default
// buffer negotiation, single-tag metadata reads and small file/text helpers.
#ifndef ZELK_PLATFORM_CHINODEUTILS_H
#define ZELK_PLATFORM_CHINODEUTILS_H

#include <stdio.h>

#include "chinode.h"
#include "chiplatformapi.h"

class CHI_PLATFORM_API ChiNodeUtils
{
public:
    // Copies the host's function pointers into pTo and, when pVendorTagBase is given, asks the
    // host for the base id of the section pComponentName. 5 for a null pFrom, 1 for a short one.
    static CDKResult SetNodeInterface(ChiNodeInterface* pFrom,
                                      const CHAR*       pComponentName,
                                      ChiNodeInterface* pTo,
                                      UINT32*           pVendorTagBase);

    // Points the host's query at the node's section table.
    static CDKResult QueryVendorTag(CHIQUERYVENDORTAG* pQuery, CHIVENDORTAGINFO* pInfo);

    // Fills every port's sizes from the requirements of the ports connected to it.
    static void DefaultBufferNegotiation(CHINODEQUERYBUFFERINFO* pQueryBufferInfo);

    // Reads one tag for one request; returns the host's data pointer or null when absent.
    static void* GetMetaData(UINT64            requestId,
                             UINT32            tagId,
                             ChiMetadataType   type,
                             ChiNodeInterface* pIface,
                             CHIHANDLE         hChiSession,
                             UINT32            cameraId = 0);

    static FILE*     FOpen(const CHAR* pName, const CHAR* pMode);
    static SIZE_T    FWrite(const void* pBuffer, SIZE_T size, SIZE_T count, FILE* pFile);
    static CDKResult FClose(FILE* pFile);

    // snprintf that reports truncation as -1.
    static INT SNPrintF(CHAR* pDst, SIZE_T size, const CHAR* pFormat, ...)
        __attribute__((format(printf, 3, 4)));
};

#endif // ZELK_PLATFORM_CHINODEUTILS_H
