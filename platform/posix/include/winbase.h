#pragma once

#include <winnt.h>
