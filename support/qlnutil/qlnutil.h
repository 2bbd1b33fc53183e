/// @file qlnutil.h
/// All of qlnutil in one include.
#ifndef QLNUTIL_QLNUTIL_H
#define QLNUTIL_QLNUTIL_H

#include "qlnutil/kxdiskcache.h"
#include "qlnutil/kxprojecttoxml.h"
#include "qlnutil/mediacmd.h"
#include "qlnutil/qlnaac.h"
#include "qlnutil/qlnbits.h"
#include "qlnutil/qlnformat.h"
#include "qlnutil/qlnframe.h"
#include "qlnutil/qlnh264.h"
#include "qlnutil/qlnhevc.h"
#include "qlnutil/qlninband.h"
#include "qlnutil/qlninfo.h"
#include "qlnutil/qlntransport.h"

#endif
