// A vendor's board utilities library.
#pragma once

class boardUtils {
public:
    boardUtils();
    virtual ~boardUtils();
    virtual int getVersion(int& version);
    char registers[1500] = {};
};
