// A second process for the logger tests: logs one INFO line to <baseDir>/log/<fileName>.
#include <ZrUtils/LoggerObject.h>

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    ZrUtils::LoggerObject::InitLogger(argv[1], argv[2]);
    ZrUtils::LoggerObject::info(argv[3]);
    ZrUtils::LoggerObject::ReleaseLogger();
    return 0;
}
