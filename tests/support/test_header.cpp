// Nothing: the precompiled header that most test programs share needs a target to belong to.
