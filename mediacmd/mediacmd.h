// Public headers of the mediacmd subsystem in one include: the media command record, its
// vocabularies, and its XML, JSON and debug forms.
#pragma once
#include "mediacmd/mediacmd_record.h"
#include "mediacmd/mediacmd_tables.h"
#include "mediacmd/mediacmd_xml.h"
#include "mediacmd/mediacmd_json.h"
#include "mediacmd/mediacmd_debug.h"
