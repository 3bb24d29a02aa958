// vrncal: field distortion correction for two-axis galvanometer scan heads.
// The umbrella header; a host includes this one.
#ifndef VRNCAL_VRNCAL_H
#define VRNCAL_VRNCAL_H

#include "vrncal/export.h"
#include "vrncal/records.h"
#include "vrncal/geometry.h"
#include "vrncal/calib_alg.h"
#include "vrncal/bcd_file.h"
#include "vrncal/cfg_file.h"
#include "vrncal/lsm_fit.h"
#include "vrncal/solver.h"
#include "vrncal/string_util.h"
#include "vrncal/facade.h"
#include "vrncal/batch.h"
#include "vrncal/file_io.h"
#include "vrncal/validate.h"
#include "vrncal/version.h"

#endif
