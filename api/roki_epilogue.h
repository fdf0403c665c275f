
#ifdef __cplusplus
}
#endif

#endif /* ROKI_H */
