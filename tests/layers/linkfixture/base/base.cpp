int baseValue() { return 1; }
