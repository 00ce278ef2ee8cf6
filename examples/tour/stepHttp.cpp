#include "Tour.h"
void tourHttp(Tour&) { }
