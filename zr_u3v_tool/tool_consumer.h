#pragma once

#include "acquisition.h"

// The project's GenTL consumer, which the whole tool is built on, by its short names.
using consumer::Acquisition;
using consumer::Camera;
using consumer::DataStream;
using consumer::GenTLError;
using consumer::Image;
using consumer::Producer;
using consumer::Session;
