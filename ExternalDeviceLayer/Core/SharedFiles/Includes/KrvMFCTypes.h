/*
 * All containers at once.
 */
#ifndef KRV_MFC_TYPES_H
#define KRV_MFC_TYPES_H

#include "CMAllocator.h"
#include "CMArray.h"
#include "CMString.h"

#endif
