// Placeholder until the quick-check table is generated.
