// Placeholder so that a subsystem without sources yet still forms a library.
