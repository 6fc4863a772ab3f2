#include "BlobAnalysis.h"

BlobAnalysis::~BlobAnalysis() {}
